// Reading -v: the first prefix that fits decides the type of a new item and
// whether a reset starts a history with the new date (H) or with the old
// one (HU); a text that fits no type ends with 9 before any path runs.
#include <string>

#include "runtime/HostClock.h"
#include "usagelog_host_fixture.h"

namespace {

class UsageLogTypeOption : public UsageLogHost {};

TEST_F(UsageLogTypeOption, FirstFittingPrefixDecidesTheType) {
    struct Case {
        char const* text;
        UsageDataType type;
    };
    Case const cases[] = {{"C", UsageType::Counter}, {"Cxy", UsageType::Counter}, {"counter", UsageType::Counter},
                          {"D", UsageType::Date},    {"Date", UsageType::Date},   {"H", UsageType::Date},
                          {"HU", UsageType::Date},   {"T", UsageType::Timer},     {"Timer", UsageType::Timer},
                          {"TCD", UsageType::Timer}, {"12345678", 0},             {"X", 0},
                          {"U", 0},                  {"Timer123X", 0}};
    int index = 0;
    for (Case const& c : cases) {
        std::string key = "New.Item" + std::to_string(index++);
        unsigned int expectedExit = c.type == 0 ? 9u : 0u;
        // "Timer123X" is one character too long for the read: 9 as well.
        EXPECT_EQ(Run("UsageLog -i " + key + " -v" + c.text), expectedExit) << c.text;
        EXPECT_EQ(System::usage.GetDataType(WString::FromUtf8(key).c_str()), c.type) << c.text;
    }
    // 9 comes before every path's own checks.
    EXPECT_EQ(Run("UsageLog -v -a"), 9u);
    EXPECT_EQ(Run("UsageLog -vQ -m A B"), 9u);
    EXPECT_EQ(Run("UsageLog -vQ X=1"), 9u);
    EXPECT_FALSE(System::usage.ContainsKey(L"X"));
}

TEST_F(UsageLogTypeOption, HistoryFormsOfAReset) {
    for (char const* key : {"Plain", "H", "HU", "History", "Hurry"})
        ASSERT_EQ(Run(std::string("UsageLog ") + key + ".Date=20240101 -vD"), 0u);
    int const today = HostClock::Now().ToDateInt();
    ASSERT_TRUE(HostClock::SetToday(20240202));
    EXPECT_EQ(Run("UsageLog -c Plain.Date -vD"), 0u);
    EXPECT_EQ(Run("UsageLog -c H.Date -vH"), 0u);
    EXPECT_EQ(Run("UsageLog -c HU.Date -vHU"), 0u);
    EXPECT_EQ(Run("UsageLog -c History.Date -vHistory"), 0u);
    EXPECT_EQ(Run("UsageLog -c Hurry.Date -vhurry"), 0u);
    EXPECT_EQ(Run("UsageLog -h Plain.Date H.Date HU.Date History.Date Hurry.Date"), 0u);
    EXPECT_EQ(output_, (std::vector<std::string>{"H.Date=20240202", "HU.Date=20240101,20240202",
                                                 "History.Date=20240202", "Hurry.Date=20240101,20240202",
                                                 "Plain.Date=20240202"}));
    // A second reset without -v extends every history that exists.
    ASSERT_TRUE(HostClock::SetToday(20240303));
    EXPECT_EQ(Run("UsageLog -c H.Date HU.Date Plain.Date"), 0u);
    EXPECT_EQ(Run("UsageLog -h H.Date HU.Date Plain.Date"), 0u);
    EXPECT_EQ(output_, (std::vector<std::string>{"H.Date=20240202,20240303", "HU.Date=20240101,20240202,20240303",
                                                 "Plain.Date=20240303"}));
    HostClock::SetToday(today);
}

}  // namespace
