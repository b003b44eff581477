/* Links the shared library (through vorl::vorl, find_package or pkg-config)
   and checks that it is the one its headers describe. */
#include <stdio.h>

#include "vorl.h"

int main(void) {
    VORLResource res = {0};
    if (VORLGetResourceSize(&res) != VORL_OK || res.resource_size != VORL_WORK_SIZE) {
        fprintf(stderr, "unexpected work-area size %u\n", (unsigned)res.resource_size);
        return 1;
    }
    if (VORLGetVersion() != VORL_VERSION) {
        fprintf(stderr, "library version 0x%06x, headers 0x%06x\n", (unsigned)VORLGetVersion(), (unsigned)VORL_VERSION);
        return 1;
    }
    return 0;
}
