#pragma once

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace vak {

class GeoTiffFile;
class Thread;

/// Writes the scan lines of an image on a thread of its own, while its user makes the next ones: compressing takes as
/// long as making them. Memory is that of a few lines. The image belongs to this until `Finish`.
///
/// For one thread. Without a thread to be had it writes on its user's.
class ScanLineWriter {
 public:
  /// @param image      open, with its fields set; outlives this.
  /// @param lineBytes  of a scan line.
  ScanLineWriter(GeoTiffFile& image, std::size_t lineBytes);
  /// Writes nothing that isn't being written.
  ~ScanLineWriter();

  ScanLineWriter(const ScanLineWriter&) = delete;
  ScanLineWriter& operator=(const ScanLineWriter&) = delete;

  /// Where the next line is to be made, from the top downwards; the one before is then complete.
  /// @return null when a line couldn't be written: the image stays as it is.
  std::byte* NextLine();

  /// Writes what is pending, and waits for it. @return whether all lines were written.
  bool Finish();

 private:
  struct Batch {
    std::vector<std::byte> bytes;
    std::size_t lines = 0;
  };

  void Run();
  bool HandOver();
  bool Write(Batch& batch);

  GeoTiffFile& image_;
  std::size_t lineBytes_;
  std::size_t mostLines_;  // in a batch
  Batch made_;             // its user's
  unsigned long row_ = 0;  // the writer's
  std::mutex mutex_;
  std::condition_variable changed_;
  Batch pending_;        // guarded by mutex_ while not being written
  bool full_ = false;    // guarded by mutex_: the batch is the writer's
  bool stop_ = false;    // guarded by mutex_
  bool failed_ = false;  // guarded by mutex_
  std::unique_ptr<Thread> thread_;
};

}  // namespace vak
