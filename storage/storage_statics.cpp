#include "vu_storage.h"

// The marker is a constant when the library is loaded; the string is made empty. Neither calls
// anything, so the order in which the library's objects are made does not matter.
constinit std::int32_t vu_storage::s_initDone = 0;
std::string vu_storage::s_sTdcTimeStamp;
