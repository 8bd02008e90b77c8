#include "vu_storage.h"

// Constants all of them, so that nothing runs for them when the library is loaded that could meet
// an object of another file before that one is made.
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
