// The library's version, for hosts that check the library they run against
// the headers they were built with.
#include "vorl.h"

extern "C" uint32_t VORLGetVersion(void) { return VORL_VERSION; }
