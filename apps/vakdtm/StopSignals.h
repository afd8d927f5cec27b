#pragma once

namespace vak {

/// Takes over what a terminal and a system send to a running command. Call once, before any thread is started.
///
/// The first SIGINT (Ctrl-C) or SIGTERM only sets a flag; another one, 0.3 seconds or more later, removes what
/// `DiscardOnKill` names and kills at once. A signal that the parent process had ignored, as a shell does for a job in
/// the background, stays ignored. System calls that wait are interrupted (EINTR) and not restarted, so that a command
/// that waits for its input notices the flag. A pipe whose reader has gone is an ordinary write error (EPIPE)
/// afterwards and not a signal.
void CatchStopSignals();

/// True once the user or the system has asked the command to stop; it never becomes false again. Any thread may ask.
[[nodiscard]] bool StopRequested();

}  // namespace vak
