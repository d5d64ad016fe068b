// This program stands in for dlopen and dlclose: the optional function is looked for in a library of the test's choice.
#include "recorder_boot.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "RecorderBench.h"
#include "TestFiles.h"
#include "database.h"
#include "shpa3link.h"

namespace {

enum ECardLibrary { LIBRARY_COMPLETE, LIBRARY_WITHOUT_FUNCTION, LIBRARY_MISSING };
ECardLibrary eCardLibrary = LIBRARY_COMPLETE;
int iLibrariesOpen = 0;  // handles on the card library that are open

template <typename F>
F* Real(const char* acName) {
  return reinterpret_cast<F*>(dlsym(RTLD_NEXT, acName));
}

}  // namespace

extern "C" void* dlopen(const char* acFile, int iMode) noexcept {
  const bool isCardLibrary = acFile != nullptr && strcmp(acFile, "libshpa3.so") == 0;
  if (isCardLibrary && eCardLibrary == LIBRARY_MISSING) return nullptr;
  if (isCardLibrary && eCardLibrary == LIBRARY_WITHOUT_FUNCTION) acFile = "libm.so.6";
  void* prHandle = Real<decltype(dlopen)>("dlopen")(acFile, iMode);
  if (isCardLibrary && prHandle) iLibrariesOpen++;
  return prHandle;
}

extern "C" int dlclose(void* prHandle) noexcept {
  iLibrariesOpen--;
  return Real<decltype(dlclose)>("dlclose")(prHandle);
}

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* DISABLED_FILE = "/var/morvex/conf/crec_disabled";

class BootTest : public RecorderBench {
 protected:
  void SetUp() override {
    eCardLibrary = LIBRARY_COMPLETE;
    iLibrariesOpen = 0;
  }
  void TearDown() override { (void)remove(DISABLED_FILE); }
};

// -- settings and master switch ---------------------------------------------------------------------------------------

// Tells which part was asked when.
class OrderedDatabase : public FakeDatabase {
 public:
  void GetConfigsPart(StdStringMap& rConfigs, const std::string& strPart) override {
    strAsked += strPart + ";";
    FakeDatabase::GetConfigsPart(rConfigs, strPart);
  }
  std::string strAsked;
};

TEST_F(BootTest, LoadSettingsFillsTheThreeMapsInOrder) {
  auto prOwned = std::make_unique<OrderedDatabase>();
  OrderedDatabase& rDatabase = *prOwned;
  rBoot.prDatabase = std::move(prOwned);
  rDatabase.rParts = {{"crec", {{"a", "1"}}}, {"o", {{"b", "2"}}}, {"s", {{"crec", "1"}}}, {"x", {{"c", "3"}}}};
  EXPECT_TRUE(rBoot.LoadSettings());
  EXPECT_EQ(rDatabase.strAsked, "crec;s;o;");
  EXPECT_EQ(rBoot.rConfigs, (StdStringMap{{"a", "1"}}));
  EXPECT_EQ(rBoot.rConfigsO, (StdStringMap{{"b", "2"}}));
  EXPECT_EQ(rBoot.rConfigsSys, (StdStringMap{{"crec", "1"}}));
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
  prDb = nullptr;
}

TEST_F(BootTest, MasterSwitchMustBeOne) {
  for (const char* acValue : {"", "0", "2", "yes", "4294967297"}) {
    prDb->rParts["s"]["crec"] = acValue;
    EXPECT_FALSE(rBoot.LoadSettings()) << acValue;
    EXPECT_THAT(logsink::TakeTexts(), ElementsAre("4 Card recording is disabled in database")) << acValue;
  }
  prDb->rParts["s"]["crec"] = "1 ";
  EXPECT_TRUE(rBoot.LoadSettings());
}

TEST_F(BootTest, DatabaseThatCannotBeReadMeansDisabled) {
  prDb->rParts["s"]["crec"] = "1";
  prDb->fDown = true;
  EXPECT_FALSE(rBoot.LoadSettings());
  EXPECT_THAT(rBoot.rConfigsSys, IsEmpty());
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("4 Card recording is disabled in database"));
}

// -- start and end ----------------------------------------------------------------------------------------------------

TEST_F(BootTest, DisabledByFileComesBeforeAllElse) {
  WriteTestFile(DISABLED_FILE, "");
  TRecorderBoot rOther;
  EXPECT_FALSE(rOther.Init());
  EXPECT_EQ(rOther.prDatabase, nullptr);
  EXPECT_EQ(iLibrariesOpen, 0);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("4 Card recording is disabled using file"));
}

TEST_F(BootTest, WithoutDatabaseServerRecordingIsDisabled) {
  Database::Init();
  {
    TRecorderBoot rOther;
    EXPECT_FALSE(rOther.Init());
    EXPECT_NE(rOther.prDatabase, nullptr);
    EXPECT_EQ(iLibrariesOpen, 1);
    const Texts astrLog = logsink::TakeTexts();
    EXPECT_EQ(astrLog.front(), "5 SsmClearR2callToneBuf symbol found");
    EXPECT_EQ(astrLog.back(), "4 Card recording is disabled in database");
  }
  EXPECT_EQ(iLibrariesOpen, 0);
  Database::Deinit();
}

TEST_F(BootTest, OptionalFunctionIsFoundAndForgottenAgain) {
  rBoot.LinkOptionalFunctions();
  EXPECT_EQ(SsmClearR2callToneBuf_FP, Real<int(int)>("SsmClearR2callToneBuf"));
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 SsmClearR2callToneBuf symbol found"));
  rBoot.UnlinkOptionalFunctions();
  EXPECT_EQ(SsmClearR2callToneBuf_FP, nullptr);
  EXPECT_EQ(iLibrariesOpen, 0);
  rBoot.UnlinkOptionalFunctions();  // nothing is closed twice
  EXPECT_EQ(iLibrariesOpen, 0);
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
}

TEST_F(BootTest, LibraryWithoutTheOptionalFunction) {
  eCardLibrary = LIBRARY_WITHOUT_FUNCTION;
  rBoot.LinkOptionalFunctions();
  EXPECT_EQ(SsmClearR2callToneBuf_FP, nullptr);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 SsmClearR2callToneBuf symbol not found"));
  rBoot.UnlinkOptionalFunctions();
  EXPECT_EQ(iLibrariesOpen, 0);
}

TEST_F(BootTest, LibraryThatCannotBeOpenedIsPassedInSilence) {
  rBoot.LinkOptionalFunctions();
  rBoot.UnlinkOptionalFunctions();
  Forget();
  SsmClearR2callToneBuf_FP = [](int) { return 0; };
  eCardLibrary = LIBRARY_MISSING;
  rBoot.LinkOptionalFunctions();
  EXPECT_EQ(SsmClearR2callToneBuf_FP, nullptr);
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
}

TEST_F(BootTest, BootObjectTakesTheOptionalFunctionWithIt) {
  {
    TRecorderBoot rOther;
    rOther.LinkOptionalFunctions();
    EXPECT_NE(SsmClearR2callToneBuf_FP, nullptr);
  }
  EXPECT_EQ(SsmClearR2callToneBuf_FP, nullptr);
  EXPECT_EQ(iLibrariesOpen, 0);
}

}  // namespace
