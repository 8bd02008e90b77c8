#include "vu_storage.h"

// The mark is a constant at load time, the string is constructed empty. Neither uses another static
// object, so the order of their construction does not matter.
constinit std::int32_t vu_storage::s_initDone = 0;
std::string vu_storage::s_sTdcTimeStamp;
