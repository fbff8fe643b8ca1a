// The plug-in registry as the host reaches it: the exported functions of the
// loaded UsageLog.dll and AutoTestSample.dll, which share one registry.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "frame/host/AutomaticTestEntry.h"
#include "runtime/Host.h"

namespace {

using Select = std::int32_t (*)(char const*);
using NextCommand = CommandFactory (*)(unsigned int);
using NextTest = bool (*)(int, AutomaticTestEntry&);

class Registry : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        std::string error, warning;
        ASSERT_TRUE(Host::LoadPlugin(UsageLogPath(), error, warning)) << error;
        ASSERT_TRUE(Host::LoadPlugin(LABSHELL_BIN_DIR "/AutoTestSample.dll", error, warning)) << error;
    }
    static std::string UsageLogPath() { return LABSHELL_BIN_DIR "/UsageLog.dll"; }

    void SetUp() override {
        select_ = reinterpret_cast<Select>(dlsym(RTLD_DEFAULT, "_Z20DllRegistrySelectDllPKc"));
        next_ = reinterpret_cast<NextCommand>(dlsym(RTLD_DEFAULT, "_Z25DllRegistryGetNextCommandj"));
        nextTest_ = reinterpret_cast<NextTest>(
            dlsym(RTLD_DEFAULT, "_Z34DllRegistryTryGetNextAutomaticTestiR18AutomaticTestEntry"));
        ASSERT_NE(select_, nullptr);
        ASSERT_NE(next_, nullptr);
        ASSERT_NE(nextTest_, nullptr);
    }

    std::vector<CommandFactory> Commands() const {
        std::vector<CommandFactory> factories;
        for (unsigned int index = 0; CommandFactory factory = next_(index); ++index) factories.push_back(factory);
        return factories;
    }
    std::vector<std::wstring> TestNames() const {
        std::vector<std::wstring> names;
        AutomaticTestEntry entry;
        for (int index = 0; nextTest_(index, entry); ++index) names.push_back(entry.name.str);
        return names;
    }
    static std::wstring NameOf(CommandFactory factory) {
        std::unique_ptr<CommandBase> command(factory());
        return command->GetName().str;
    }

    Select select_ = nullptr;
    NextCommand next_ = nullptr;
    NextTest nextTest_ = nullptr;
};

TEST_F(Registry, SelectionByFileNameOffersThatFilesCommandsAndTests) {
    ASSERT_EQ(select_(UsageLogPath().c_str()), 0);
    std::vector<CommandFactory> byPath = Commands();
    ASSERT_EQ(byPath.size(), 7u);
    EXPECT_EQ(NameOf(byPath[0]), L"GetFormattedUsageData");
    EXPECT_EQ(NameOf(byPath[4]), L"UsageLog");
    EXPECT_EQ(NameOf(byPath[6]), L"UsageLogSpy");
    EXPECT_EQ(next_(7), nullptr);
    EXPECT_TRUE(TestNames().empty());

    ASSERT_EQ(select_("UsageLog.dll"), 0);
    EXPECT_EQ(Commands(), byPath);

    // Letter case counts: nothing is selected, and that is no error.
    EXPECT_EQ(select_("usagelog.DLL"), 0);
    EXPECT_EQ(next_(0), nullptr);

    // The sample offers tests and no command.
    ASSERT_EQ(select_(LABSHELL_BIN_DIR "/AutoTestSample.dll"), 0);
    EXPECT_TRUE(Commands().empty());
    EXPECT_EQ(TestNames(), (std::vector<std::wstring>{L"TextSplitsIntoTokens", L"KnownFailure"}));
    AutomaticTestEntry entry;
    EXPECT_FALSE(nextTest_(-1, entry));
    EXPECT_TRUE(entry.name.IsEmpty());

    // The records stay: selecting the first file again brings its commands back.
    ASSERT_EQ(select_(UsageLogPath().c_str()), 0);
    EXPECT_EQ(Commands(), byPath);
    EXPECT_TRUE(TestNames().empty());
}

TEST_F(Registry, HostOffersTheCommandsAndTestsOfEveryLoadedFile) {
    std::vector<WString> names = Host::CommandNames();
    auto has = [&](wchar_t const* name) {
        for (WString const& known : names) {
            if (known.str == name) return true;
        }
        return false;
    };
    EXPECT_TRUE(has(L"UsageLogKeeper"));
    EXPECT_TRUE(has(L"GetFormattedUsageData"));
    std::vector<AutomaticTestEntry> tests = Host::AutomaticTests();
    ASSERT_EQ(tests.size(), 2u);
    EXPECT_EQ(tests[1].name.str, L"KnownFailure");
    EXPECT_EQ(tests[1].description.str, L"A test that fails on purpose");
}

}  // namespace
