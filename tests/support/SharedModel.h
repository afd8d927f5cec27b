#pragma once

#include <cstdlib>
#include <memory>
#include <signal.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "vakdtm/services/notify/Subscriber.h"
#include "vakdtm/services/notify/Subscription.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmManager.h"
#include "vakdtm/store/DtmUpdateFile.h"

namespace vak::test {

struct CloseModel {
  void operator()(DtmUpdateFile* model) const { model->Close(); }
};
/// One open count on a model of the manager.
using SharedModel = std::unique_ptr<DtmUpdateFile, CloseModel>;

inline SharedModel OpenShared(const std::wstring& name, bool readWrite) {
  return SharedModel(DtmManager::GetDtmManager().OpenDtm(name, readWrite, nullptr));
}

inline SharedModel CreateShared(const std::wstring& name, const DtmManager::create_params& params = {}) {
  return SharedModel(DtmManager::GetDtmManager().OpenDtm(name, true, &params));
}

inline bool Sound(DtmFile& model, double x, double y, double z, long long time = 0) {
  return DtmAccess(&model).InsertValue(x, y, z, time, nullptr, nullptr, 0);
}

/// The value of the cell that holds a point; the empty one where there is none.
inline double ValueAt(DtmFile& model, double x, double y, int id = dVAL) {
  int row = 0;
  int col = 0;
  model.CalcRowCol(x, y, row, col);
  double value = 0;
  return DtmAccess(&model).GetDoubleValue(row, col, id, value) ? value : EmptyDouble();
}

/// For its lifetime, no file of this process or of those it starts may grow beyond `bytes`, as on a full disk.
class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes) : formerAction_(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &former_);
    const rlimit limit = {bytes, former_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &former_);
    signal(SIGXFSZ, formerAction_);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  void (*formerAction_)(int);
  rlimit former_{};
};

/// For its lifetime the process is not the superuser, to whom no file is closed.
class AsStranger {
 public:
  AsStranger() : wasRoot_(geteuid() == 0) {
    if (wasRoot_ && seteuid(kNobody) != 0) throw std::runtime_error("seteuid");
  }
  ~AsStranger() {
    if (wasRoot_ && seteuid(0) != 0) std::abort();
  }
  AsStranger(const AsStranger&) = delete;
  AsStranger& operator=(const AsStranger&) = delete;

 private:
  static constexpr uid_t kNobody = 65534;
  bool wasRoot_;
};

/// What a model's views hear of it: every notification of an update rectangle, with the rectangle that they fetch.
class RectListener final : public Subscriber {
 public:
  struct Heard {
    int kind;
    std::wstring name;
    bool pending;  ///< whether a rectangle could be fetched
    Page rect;
    bool flag;
    std::thread::id thread;
  };

  explicit RectListener(DtmUpdateFile& model) : model_(model) {
    subscription_.SetSubscriber(this, false);
    subscription_.Subscribe(model.FileName());
  }

  void OnNotify(int kind, const std::wstring& name, const NotificationInfo* /*info*/) override {
    Heard one{kind, name, false, {}, false, std::this_thread::get_id()};
    one.pending = model_.GetUpdateRect(one.rect, one.flag);
    heard.push_back(one);
  }

  std::vector<Heard> heard;

 private:
  DtmUpdateFile& model_;
  Subscription subscription_{1};
};

}  // namespace vak::test
