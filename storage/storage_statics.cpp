#include "vu_storage.h"

// The marker and the switch are constants when the library is loaded; the strings are made empty. None
// of them calls anything, so the order in which the library's objects are made does not matter.
constinit std::int32_t vu_storage::s_initDone = 0;
constinit bool vu_storage::s_bUseDomain = true;
std::string vu_storage::s_storagePath;
std::string vu_storage::s_sCorpPath;
std::string vu_storage::s_sSemletPath;
std::string vu_storage::s_sUserPath;
std::string vu_storage::s_sListPath;
std::string vu_storage::s_sMailPath;
std::string vu_storage::s_sConfigDirPath;
std::string vu_storage::s_sTdcTimeStamp;
