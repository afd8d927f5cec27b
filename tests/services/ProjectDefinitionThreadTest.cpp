#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/text/CVakCsvString.h"
#include "vakdtm/services/text/LocaleSeparators.h"
#include "vakdtm/services/text/VakFormatter.h"

namespace vak {
namespace {

// Metres have 3 decimals here and feet 1, so that a text tells whether unit and decimals were of one project.
bool IsWhole(const std::wstring& text) { return text == L"30.480 m" || text == L"100.0 ft"; }

TEST(ProjectDefinitionThreadTest, FormattersSeeOneProjectWholeWhileItIsExchanged) {
  const auto before = DataSearch::GetDataSearch().GetProjectDefinition();
  std::atomic<bool> stop{false};
  std::thread exchanging([&stop] {
    ProjectDefinition feet;
    feet.SetUnitCnv({LengthUnit::kFoot, LengthUnit::kFoot, LengthUnit::kFoot});
    feet.SetHeightDecimals(1);
    while (!stop) {
      SetCurrentProjectDefinition(feet);
      SetLocaleSeparators(LocaleSeparators{L",", L";"});
      SetCurrentProjectDefinition(ProjectDefinition());
      SetLocaleSeparators(LocaleSeparators{L".", L","});
    }
  });
  std::vector<std::thread> readers;
  std::atomic<int> torn{0};
  readers.reserve(3);
  for (int reader = 0; reader < 3; ++reader) {
    readers.emplace_back([&torn] {
      for (int round = 0; round < 2000; ++round) {
        if (!IsWhole(VakFormatter().FormatDepth(30.48, true, true))) ++torn;
        CVakCsvString line;
        line.Set(0, L"1.5");
        line.SetItem(1, L"x");
        const std::wstring text = line.GetString();
        if (text != L"1,5;x" && text != L"1.5,x") ++torn;
      }
    });
  }
  for (std::thread& reader : readers) reader.join();
  stop = true;
  exchanging.join();
  SetLocaleSeparators({});
  SetCurrentProjectDefinition(*before);
  EXPECT_EQ(torn, 0);
}

}  // namespace
}  // namespace vak
