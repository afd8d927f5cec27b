#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/MemoryStream.h"

namespace vak::test {

/// One call of a stream: what, where and how many bytes.
struct StreamCall {
  char what = ' ';  ///< 'r' read, 'w' write, 's' sync, 'z' size setting
  std::int64_t at = 0;
  std::uint64_t count = 0;
};

/// What a `LoggedStream` was asked for, in order; outlives the stream.
struct StreamLog {
  std::vector<StreamCall> calls;
  /// Run before each call is carried out, on the thread of the call.
  std::function<void(const StreamCall&)> before;

  std::string Order() const {
    std::string order;
    for (const StreamCall& call : calls) order += call.what;
    return order;
  }
};

/// A stream in memory that keeps a list of what it was asked for.
class LoggedStream final : public DataStream {
 public:
  LoggedStream(std::shared_ptr<MemoryFile> file, std::shared_ptr<StreamLog> log)
      : stream_(std::move(file)), log_(std::move(log)) {}

  bool Sync() override {
    Note({'s', stream_.Position(), 0});
    return stream_.Sync();
  }
  bool Read(void* buffer, std::uint64_t count) override {
    Note({'r', stream_.Position(), count});
    return stream_.Read(buffer, count);
  }
  bool Write(const void* buffer, std::uint64_t count) override {
    Note({'w', stream_.Position(), count});
    return stream_.Write(buffer, count);
  }
  bool Seek(std::int64_t offset, int origin) override { return stream_.Seek(offset, origin); }
  std::int64_t Position() override { return stream_.Position(); }
  bool SetSize(std::int64_t size) override {
    Note({'z', size, 0});
    return stream_.SetSize(size);
  }

 private:
  void Note(const StreamCall& call) {
    log_->calls.push_back(call);
    if (log_->before) log_->before(call);
  }

  MemoryStream stream_;
  std::shared_ptr<StreamLog> log_;
};

}  // namespace vak::test
