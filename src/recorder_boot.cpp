// The life of a boot object: it opens the database, asks the two master switches, and links the one function that a
// card library need not have. A switch is a file, for whoever services the machine, or a setting, for the web side.
#include "recorder_boot.h"

#include <dlfcn.h>
#include <syslog.h>

#include "database.h"
#include "filedir.h"
#include "fstring.h"
#include "logging.h"
#include "shpa3link.h"

namespace {

constexpr const char* DISABLED_FILE = "/var/morvex/conf/crec_disabled";
constexpr const char* CARD_LIBRARY = "libshpa3.so";

}  // namespace

TRecorderBoot::~TRecorderBoot() {
  prDatabase.reset();
  UnlinkOptionalFunctions();
}

bool TRecorderBoot::Init() {
  if (file_exists(DISABLED_FILE)) {
    lg(LOG_WARNING, "Card recording is disabled using file");
    return false;
  }
  LinkOptionalFunctions();
  prDatabase = std::make_unique<Database>();
  return LoadSettings();
}

bool TRecorderBoot::LoadSettings() {
  prDatabase->GetConfigsPart(rConfigs, "crec");
  prDatabase->GetConfigsPart(rConfigsSys, "s");
  prDatabase->GetConfigsPart(rConfigsO, "o");
  if (TextToLong(GetSysSetting("crec")) == 1) return true;
  lg(LOG_WARNING, "Card recording is disabled in database");
  return false;
}

void TRecorderBoot::LinkOptionalFunctions() {
  SsmClearR2callToneBuf_FP = nullptr;
  shpaDll = dlopen(CARD_LIBRARY, RTLD_LAZY);
  if (!shpaDll) return;
  SsmClearR2callToneBuf_FP = reinterpret_cast<SsmClearR2callToneBuf_FT>(dlsym(shpaDll, "SsmClearR2callToneBuf"));
  lg(LOG_NOTICE,
     SsmClearR2callToneBuf_FP ? "SsmClearR2callToneBuf symbol found" : "SsmClearR2callToneBuf symbol not found");
}

void TRecorderBoot::UnlinkOptionalFunctions() {
  SsmClearR2callToneBuf_FP = nullptr;
  if (!shpaDll) return;
  (void)dlclose(shpaDll);  // the process itself keeps the library
  shpaDll = nullptr;
}

void TRecorderBoot::PrepareConfig() {
  DetectBoards();
  CreateBoardList();
  WriteConfig();
}
