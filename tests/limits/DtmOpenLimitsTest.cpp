#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <malloc.h>
#include <new>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

#include "limits/LargestPiece.h"
#include "support/LongForm.h"
#include "support/MemoryStream.h"

// What the largest and strangest files cost. This program counts its memory, which is why it is one of its own.
namespace {

std::atomic<std::int64_t> taken{0};
std::atomic<std::int64_t> mostTaken{0};

void* Take(std::size_t size) {
  if (size > vak::test::largestPiece) throw std::bad_alloc();
  void* const memory = std::malloc(size > 0 ? size : 1);
  if (!memory) throw std::bad_alloc();
  const std::int64_t now = taken += static_cast<std::int64_t>(malloc_usable_size(memory) + sizeof(std::size_t));
  std::int64_t most = mostTaken;
  while (most < now && !mostTaken.compare_exchange_weak(most, now)) {
  }
  return memory;
}

void GiveBack(void* memory) {
  if (!memory) return;
  taken -= static_cast<std::int64_t>(malloc_usable_size(memory) + sizeof(std::size_t));
  std::free(memory);
}

}  // namespace

std::atomic<std::size_t> vak::test::largestPiece{std::numeric_limits<std::size_t>::max()};

void* operator new(std::size_t size) { return Take(size); }
void* operator new[](std::size_t size) { return Take(size); }
void operator delete(void* memory) noexcept { GiveBack(memory); }
void operator delete[](void* memory) noexcept { GiveBack(memory); }
void operator delete(void* memory, std::size_t) noexcept { GiveBack(memory); }
void operator delete[](void* memory, std::size_t) noexcept { GiveBack(memory); }

namespace vak::test {
namespace {

constexpr int kAreaTag = 0x61726561;
constexpr int kAttributesTag = 0x61747472;
constexpr int kIndexTag = 0x696E3364;
constexpr int kOldIndexTag = 0x696E6478;
/// Body of an area of one cell with one `c` block.
constexpr int kSmallBody = 32 + 8 + 1;

/// Writes a file of about the size wanted.
class Writer {
 public:
  explicit Writer(std::size_t size) : size_(size) {
    bytes_.reserve(size + 100);
    constexpr char kMagic[] = "VAK4100 DTM";
    bytes_.insert(bytes_.end(), kMagic, kMagic + 12);
  }

  template <typename... T>
  void Put(T... values) {
    (PutOne(values), ...);
  }
  void Settings(const std::vector<int>& ids) {
    const int list = 4 * static_cast<int>(ids.size());
    Put(kAttributesTag, 36 + list, 0x6373697A, 8, 1.0, 0x6173697A, 4, 1, 0x62696473, list);
    for (const int id : ids) Put(id);
  }
  void Area(int row, int col, const std::vector<int>& ids) {
    int body = 32;
    for (const int id : ids) body += 8 + Width(id);
    Place(row, col, body);
    for (const int id : ids) {
      Put(id, Width(id));
      bytes_.resize(bytes_.size() + static_cast<std::size_t>(Width(id)), 1);
    }
  }
  void Place(int row, int col, int body) {
    Put(kAreaTag, body, kAttributesTag, 24, 0x626C7277, 4, row, 0x626C636C, 4, col);
  }
  void Head(int entries) { Put(kIndexTag, 32 * entries + 9); }
  void Entry(int row, int col, std::int64_t position) { Put(row, col, position, std::int64_t{5}, std::int64_t{-1}); }
  void Tail(int entries) { Put(kIndexTag, 32 * entries + 8); }

  bool HasRoom() const { return bytes_.size() < size_; }
  int Left(int each) const {
    return static_cast<int>((size_ - std::min(size_, bytes_.size())) / static_cast<std::size_t>(each));
  }
  std::int64_t At() const { return static_cast<std::int64_t>(bytes_.size()); }
  int Draw() { return static_cast<int>(rng_()) / 2; }
  std::vector<std::uint8_t> Take() { return std::move(bytes_); }

 private:
  static int Width(int id) { return DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(id)); }
  template <typename T>
  void PutOne(T value) {
    const std::size_t at = bytes_.size();
    bytes_.resize(at + sizeof value);
    std::memcpy(bytes_.data() + at, &value, sizeof value);
  }

  std::size_t size_;
  std::vector<std::uint8_t> bytes_;
  std::mt19937 rng_{1};
};

const std::vector<int> kOne = {cOIL};

struct Case {
  const char* name;
  bool opens;
  void (*write)(Writer& file);
};

const Case kCases[] = {
    {"chunks without a body", true,
     [](Writer& file) {
       file.Settings(kOne);
       while (file.HasRoom()) file.Put(5, 0);
     }},
    {"the smallest areas, anywhere", true,
     [](Writer& file) {
       file.Settings(kOne);
       while (file.HasRoom()) file.Area(file.Draw(), file.Draw(), kOne);
     }},
    {"areas without blocks", true,
     [](Writer& file) {
       file.Settings(kOne);
       while (file.HasRoom()) file.Place(file.Draw(), file.Draw(), 32);
     }},
    {"areas at one place", true,
     [](Writer& file) {
       file.Settings(kOne);
       while (file.HasRoom()) file.Area(1, 1, kOne);
     }},
    {"an index of anything", true,
     [](Writer& file) {
       file.Settings(kOne);
       for (int i = 0; i < 10'000; ++i) file.Area(i, i, kOne);
       const int count = file.Left(32);
       file.Head(count);
       for (int i = 0; i < count; ++i) file.Entry(file.Draw(), file.Draw(), 60 + (file.Draw() & 0x7FFFF));
       file.Tail(count);
     }},
    {"an old index of anything", true,
     [](Writer& file) {
       file.Settings(kOne);
       for (int i = 0; i < 10'000; ++i) file.Area(i, i, kOne);
       const int count = file.Left(24);
       file.Put(kOldIndexTag, 24 * count + 9);
       for (int i = 0; i < count; ++i) {
         file.Put(file.Draw(), file.Draw(), std::int64_t{60 + (file.Draw() & 0x7FFFF)}, std::int64_t{5});
       }
       file.Put(kOldIndexTag, 24 * count + 8);
     }},
    {"an index that gives one position to all", true,
     [](Writer& file) {
       file.Settings(kOne);
       const std::int64_t position = file.At() + 8;
       file.Area(0, 0, kOne);
       const int count = file.Left(32);
       file.Head(count);
       for (int i = 0; i < count; ++i) file.Entry(file.Draw(), file.Draw(), position);
       file.Tail(count);
     }},
    {"an index that gives one place to all", true,
     [](Writer& file) {
       file.Settings(kOne);
       for (int i = file.Left(32 + 8 + kSmallBody); i > 0; --i) file.Area(i, i, kOne);
       const int count = file.Left(32);
       file.Head(count);
       // From the back, so that the order of the file isn't that of the index.
       for (int i = count; i > 0; --i) file.Entry(7, 7, 60 + 8 + std::int64_t{8 + kSmallBody} * (i - 1));
       file.Tail(count);
     }},
    {"an index into one long run of chunks", true,
     [](Writer& file) {
       file.Settings(kOne);
       const std::int64_t position = file.At() + 8;
       const int run = file.Left(16);
       file.Put(kAreaTag, 8 * run);
       for (int i = 0; i < run; ++i) file.Put(5, 0);
       const int count = file.Left(32);
       file.Head(count);
       for (int i = 0; i < count; ++i) file.Entry(file.Draw(), file.Draw(), position + i % 2);
       file.Tail(count);
     }},
    {"an index into areas within areas", true,
     [](Writer& file) {
       file.Settings(kOne);
       const std::int64_t position = file.At() + 8;
       const int count = file.Left(48);
       for (int i = 0; i < count; ++i) file.Put(kAreaTag, 0x7FFFFFF0 - 16 * i, 5, 8);
       file.Head(count);
       for (int i = 0; i < count; ++i) file.Entry(file.Draw(), file.Draw(), position + std::int64_t{16} * i);
       file.Tail(count);
     }},
    {"areas that all reach too far for a block they don't have", true,
     [](Writer& file) {
       file.Settings(kOne);
       const int count = file.Left(32 + 8 + kSmallBody + 8);
       for (int i = 0; i < count; ++i) {
         file.Place(i / 1000, i % 1000, 0x7FFFFFF0);
         file.Put(5, 0, 6, 1, static_cast<char>(1));
       }
       file.Head(count);
       for (int i = 0; i < count; ++i) {
         file.Entry(i / 1000, i % 1000, 60 + 8 + std::int64_t{8 + kSmallBody + 8} * i);
       }
       file.Tail(count);
     }},
    {"areas hidden in the chunks of others, without a block", true,
     [](Writer& file) {
       file.Settings(kOne);
       const int count = file.Left(32 + 50);
       for (int i = 0; i < count; ++i) {
         file.Place(i / 1000, i % 1000, 50 * (count - i) - 8);
         file.Put(5, 42, static_cast<short>(0));
       }
       file.Put(std::int64_t{0}, std::int64_t{0}, std::int64_t{0}, std::int64_t{0}, std::int64_t{0});
       file.Head(count);
       for (int i = 0; i < count; ++i) file.Entry(i / 1000, i % 1000, 60 + 8 + std::int64_t{50} * i);
       file.Tail(count);
     }},
    {"a list of nothing but ids", true,
     [](Writer& file) {
       std::vector<int> ids(static_cast<std::size_t>(file.Left(4)));
       for (int& id : ids) id = file.Draw();
       file.Settings(ids);
     }},
    {"a list of one id, and an area with as many blocks", true,
     [](Writer& file) {
       const std::vector<int> ids(static_cast<std::size_t>(file.Left(4 + 9)), cOIL);
       file.Settings(ids);
       file.Area(0, 0, ids);
     }},
    {"areas with a great many blocks without cells", true,
     [](Writer& file) {
       std::vector<int> ids(static_cast<std::size_t>(file.Left(4 + 10 * 8)));
       for (int& id : ids) id = (file.Draw() & 0xFFFFFF) | 0x78000000;
       file.Settings(ids);
       for (int i = 0; i < 10; ++i) file.Area(0, i, ids);
     }},
    {"a long list, and areas that aren't there", true,
     [](Writer& file) {
       const std::vector<int> ids(static_cast<std::size_t>(file.Left(4)), cOIL);
       file.Settings(ids);
       file.Head(100);
       for (int i = 0; i < 100; ++i) file.Entry(0, i, 72);
       file.Tail(100);
     }},
    {"settings full of chunks, and nothing in them", false,
     [](Writer& file) {
       const int count = file.Left(8);
       file.Put(kAttributesTag, 8 * count);
       for (int i = 0; i < count; ++i) file.Put(5, 0);
     }},
    {"settings behind a great many chunks", true,
     [](Writer& file) {
       const int count = file.Left(8);
       file.Put(kAttributesTag, 8 * count + 16 + 12 + 12);
       for (int i = 0; i < count; ++i) file.Put(5, 0);
       file.Put(0x6373697A, 8, 1.0, 0x6173697A, 4, 1, 0x62696473, 4, static_cast<int>(cOIL));
     }},
    {"attributes within attributes", true,
     [](Writer& file) {
       file.Settings(kOne);
       const int length = file.Left(1);
       file.Put(kAreaTag, length);
       for (int left = length - 8; left > 8; left -= 8) file.Put(kAttributesTag, left);
     }},
};

/// Reads a cell of every area, and then one of every block of every area, the latter so often at most.
void ReadSome(DtmFile& dtm) {
  DtmAccess access(&dtm);
  double value = 0;
  for (int i = 0; i < dtm.NumAreas(); ++i) {
    const DtmArea* const area = dtm.GetArea(i);
    access.GetDoubleValue(area->BottomLeftRow(), area->BottomLeftCol(), dtm.GetBlockId(0), value);
  }
  int reads = 4'000'000;
  for (int i = 0; i < dtm.NumAreas() && reads > 0; ++i) {
    const DtmArea* const area = dtm.GetArea(i);
    for (int b = 0; b < dtm.NumBlockIds() && reads > 0; ++b, --reads) {
      access.GetDoubleValue(area->BottomLeftRow(), area->BottomLeftCol(), dtm.GetBlockId(b), value);
    }
  }
}

}  // namespace

TEST(DtmOpenLimits, NoFileCostsMoreMemoryThanSixteenTimesItsSizeAnd16MiB) {
  const auto size = static_cast<std::size_t>(LongForm(6'000'000, 100'000'000, 1'500'000));
  for (const Case& one : kCases) {
    SCOPED_TRACE(one.name);
    Writer writer(size);
    one.write(writer);
    auto file = std::make_shared<MemoryFile>();
    file->bytes = writer.Take();
    ASSERT_GT(file->bytes.size(), size / 10 * 9);
    const std::int64_t before = taken;
    mostTaken = before;
    const auto start = std::chrono::steady_clock::now();
    DtmFile dtm(new MemoryStream(file), false);
    EXPECT_EQ(dtm.Open(), one.opens);
    const auto opened = std::chrono::steady_clock::now();
    const std::int64_t forOpening = mostTaken - before;
    if (one.opens) ReadSome(dtm);
    const auto read = std::chrono::steady_clock::now();
    const std::int64_t forReading = mostTaken - before;
    const auto limit = static_cast<std::int64_t>(16 * file->bytes.size() + (std::size_t{16} << 20));
    EXPECT_LE(forOpening, limit);
    EXPECT_LE(forReading, limit);
    // A few passes over the file, not one for each area; the machine's load decides the rest.
    EXPECT_LT(opened - start, std::chrono::seconds(LongForm(20, 120)));
    EXPECT_LT(read - opened, std::chrono::seconds(LongForm(60, 600)));
    if (one.opens) dtm.Close();
  }
}

}  // namespace vak::test
