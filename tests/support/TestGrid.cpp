#include "support/TestGrid.h"

#include <cstdio>
#include <sstream>
#include <stdexcept>

namespace vak::test {

std::vector<std::uint8_t> Hex(std::string_view text) {
  std::vector<std::uint8_t> bytes;
  int high = -1;
  bool remark = false;
  for (const char letter : text) {
    if (letter == '\n') remark = false;
    if (letter == ';') remark = true;
    if (remark || letter == ' ' || letter == '\n') continue;
    const std::size_t digit = std::string_view("0123456789ABCDEF").find(letter);
    if (digit == std::string_view::npos) throw std::invalid_argument("no hexadecimal digit");
    if (high < 0) {
      high = static_cast<int>(digit);
    } else {
      bytes.push_back(static_cast<std::uint8_t>(high * 16 + static_cast<int>(digit)));
      high = -1;
    }
  }
  if (high >= 0) throw std::invalid_argument("half a byte");
  return bytes;
}

std::string HexDump(const std::vector<std::uint8_t>& bytes) {
  std::string dump;
  char piece[32];
  for (std::size_t line = 0; line < bytes.size(); line += 16) {
    std::snprintf(piece, sizeof piece, "%08zx ", line);
    dump += piece;
    std::string letters;
    for (std::size_t i = 0; i < 16; ++i) {
      if (i == 8) dump += ' ';
      if (line + i >= bytes.size()) {
        dump += "   ";
        continue;
      }
      const std::uint8_t byte = bytes[line + i];
      std::snprintf(piece, sizeof piece, " %02x", static_cast<unsigned>(byte));
      dump += piece;
      letters += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
    }
    dump += "  |" + letters + "|\n";
  }
  return dump;
}

TestGrid::TestGrid(const GridSettings& settings) : memory_(std::make_shared<MemoryFile>()) {
  file_ = std::make_unique<DtmFile>(new MemoryStream(memory_), true);
  file_->SetCellSize(settings.cellSize);
  file_->SetAreaSize(settings.areaSize);
  file_->ClearBlockIds();
  for (const int id : settings.blockIds) file_->AddBlockId(id);
  if (!file_->Open()) throw std::runtime_error("the model can't be made");
  access_ = std::make_unique<DtmAccess>(file_.get());
}

TestGrid::TestGrid(std::vector<std::uint8_t> bytes) : memory_(std::make_shared<MemoryFile>()) {
  memory_->bytes = std::move(bytes);
  Open();
}

TestGrid::~TestGrid() { Close(); }

double TestGrid::Get(int row, int col, int id) {
  double value = 0;
  return access_->GetDoubleValue(row, col, id, value) ? value : EmptyDouble();
}

void TestGrid::Draw(std::string_view drawing) {
  std::vector<std::string> lines;
  std::istringstream text{std::string(drawing)};
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const int row = static_cast<int>(lines.size() - 1 - i);
    std::istringstream words(lines[i]);
    int col = 0;
    for (std::string word; words >> word; ++col) {
      if (word != "." && !Set(row, col, dVAL, std::stod(word))) throw std::runtime_error("a cell can't be set");
    }
  }
}

void TestGrid::Leave() {
  access_.reset();
  access_ = std::make_unique<DtmAccess>(file_.get());
}

void TestGrid::Close() {
  access_.reset();
  if (file_) file_->Close();
  file_.reset();
}

void TestGrid::Open() {
  file_ = std::make_unique<DtmFile>(new MemoryStream(memory_), false);
  if (!file_->Open()) {
    file_.reset();
    throw std::runtime_error("the model can't be opened");
  }
  access_ = std::make_unique<DtmAccess>(file_.get());
}

void TestGrid::ReopenByWalk() {
  Close();
  memory_->bytes.back() ^= 0xFF;
  Open();
  if (file_->OpenedBy() != DtmOpenedBy::kWalk) throw std::runtime_error("not opened by the walk");
}

void TestGrid::CutTail(std::size_t count) {
  Close();
  memory_->bytes.resize(memory_->bytes.size() - count);
}

void TestGrid::FlipByte(std::size_t at) {
  Close();
  memory_->bytes.at(at) ^= 0xFF;
}

std::vector<grid::IndexEntry> TakeIndex(const std::vector<std::uint8_t>& bytes) {
  const auto* const end = reinterpret_cast<const std::byte*>(bytes.data() + bytes.size());
  const grid::ChunkHeader tail = grid::LoadHeader(end - grid::kHeaderSize);
  if (tail.tag != grid::kIndex) throw std::runtime_error("no index at the end");
  std::vector<grid::IndexEntry> entries;
  for (const std::byte* at = end - tail.length; at < end - grid::kHeaderSize; at += grid::kEntrySize) {
    entries.push_back(grid::LoadEntry(at));
  }
  return entries;
}

void PutIndex(std::vector<std::uint8_t>& bytes, const std::vector<grid::IndexEntry>& entries) {
  const auto former = static_cast<std::int64_t>(TakeIndex(bytes).size());
  const auto count = static_cast<std::int64_t>(entries.size());
  const std::size_t start = bytes.size() - static_cast<std::size_t>(grid::IndexTailLength(former) + grid::kHeaderSize);
  bytes.resize(start + static_cast<std::size_t>(grid::IndexTailLength(count) + grid::kHeaderSize));
  std::byte* to = reinterpret_cast<std::byte*>(bytes.data() + start);
  to = grid::StoreHeader(to, {grid::kIndex, static_cast<std::int32_t>(grid::IndexHeadLength(count))});
  for (const grid::IndexEntry& entry : entries) to = grid::StoreEntry(to, entry);
  grid::StoreHeader(to, {grid::kIndex, static_cast<std::int32_t>(grid::IndexTailLength(count))});
}

bool Opens(const std::vector<std::uint8_t>& bytes) {
  DtmFile file(new MemoryStream(bytes), false);
  const bool opened = file.Open();
  if (opened) file.Close();
  return opened;
}

}  // namespace vak::test
