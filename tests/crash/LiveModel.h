#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/DtmVerifier.h"

#include "SurveySimulator.h"
#include "support/RunCommand.h"

namespace vak::test {

/// A model that is opened past the manager, as another process has it; closed when this goes.
class OtherModel {
 public:
  OtherModel(const std::string& path, bool readWrite)
      : file_(std::make_unique<HugeFileStream>(FromUtf8(path).c_str(), false, readWrite).release(), false) {
    if (!file_.Open()) throw std::runtime_error("the model doesn't open");
  }
  ~OtherModel() { file_.Close(); }
  OtherModel(const OtherModel&) = delete;
  OtherModel& operator=(const OtherModel&) = delete;

  DtmFile& operator*() { return file_; }
  DtmFile* operator->() { return &file_; }

 private:
  DtmFile file_;
};

/// A survey that the command inserts into a model, as a process of its own.
class LiveSurveyProcess {
 public:
  using Words = std::vector<std::string>;

  /// @param rate  soundings a second. @param options  further ones.
  LiveSurveyProcess(const std::string& path, std::uint64_t seed, double rate, Words options = {})
      : command_(Line(path, seed, rate, std::move(options))) {}

  RunCommand& Command() { return command_; }

  /// What the last sync that it told of has put on the disk; 0 before the first.
  std::uint64_t Synced() { return LastSynced(command_.OutputSoFar()); }
  /// Waits for a sync that it tells of.
  void AwaitSync(std::size_t count = 1) { command_.AwaitLines(count); }

 private:
  static Words Line(const std::string& path, std::uint64_t seed, double rate, Words options) {
    options.insert(options.begin(), {VAKDTM_COMMAND, "simulate", "--live", path, "--cell-size", "1", "--sync", "500",
                                     "--json", "--seed", std::to_string(seed), "--rate", std::to_string(rate)});
    return options;
  }
  static std::uint64_t LastSynced(const std::string& output) {
    const std::size_t end = output.rfind('\n');
    if (end == std::string::npos) return 0;
    const std::size_t begin = output.rfind('{', end);
    return nlohmann::json::parse(output.substr(begin, end - begin))["synced"];
  }

  RunCommand command_;
};

/// What a check of the file's whole layout tells, each kind once, as text. An empty list: all is as it should be.
inline std::vector<DtmFault> Verified(const std::string& path) {
  HugeFileStream stream(FromUtf8(path).c_str(), false, false);
  std::vector<DtmFault> faults;
  DtmVerifier verifier(stream);
  verifier.SetFaultSink([&](const DtmFault& fault) {
    if (fault.Severity() != DtmFaultSeverity::kNote) faults.push_back(fault);
  });
  if (!verifier.Verify()) throw std::runtime_error("not verified");
  return faults;
}

/// All values that the cells of a survey take on, sounding by sounding, in a model that begins with what `start` has.
class CellHistories {
 public:
  static constexpr int kKinds = 5;
  /// Kinds of value that a sounding changes, whatever the time.
  static constexpr int kIds[kKinds] = {iNUM, dVAL, dSDV, dMIN, dMAX};
  struct State {
    std::uint64_t sounding = 0;  ///< the first one behind which the cell is so; 0: as it was at the start
    double values[kKinds] = {};
  };
  using History = std::vector<State>;
  using Cell = std::pair<int, int>;

  /// @param start  a file of its own; changed.
  CellHistories(const std::string& start, const SurveySimulator::Options& survey) : model_(start, true) {
    SurveySimulator simulator(survey);
    DtmAccess access(&*model_);
    Sounding s;
    while (simulator.Next(s)) {
      Cell cell;
      model_->CalcRowCol(s.x, s.y, cell.first, cell.second);
      History& history = cells_[cell];
      if (history.empty()) history.push_back(Read(access, cell, 0));
      if (!access.InsertValue(s.x, s.y, s.z, 0, nullptr, nullptr, 0)) throw std::runtime_error("not inserted");
      history.push_back(Read(access, cell, simulator.Made()));
    }
  }

  const std::map<Cell, History>& Cells() const { return cells_; }

  static State Read(DtmAccess& access, const Cell& cell, std::uint64_t sounding) {
    State state{sounding, {}};
    for (int i = 0; i < kKinds; ++i) {
      if (!access.GetDoubleValue(cell.first, cell.second, kIds[i], state.values[i])) state.values[i] = EmptyDouble();
    }
    return state;
  }

 private:
  OtherModel model_;
  std::map<Cell, History> cells_;
};

}  // namespace vak::test
