/* Links the shared library through vorl::vorl and asks it for the size of
   its work area. */
#include <stdio.h>

#include "vorl.h"

int main(void) {
    VORLResource res = {0};
    if (VORLGetResourceSize(&res) != VORL_OK || res.resource_size != VORL_WORK_SIZE) {
        fprintf(stderr, "unexpected work-area size %u\n", (unsigned)res.resource_size);
        return 1;
    }
    return 0;
}
