// Writes the reference tuning table to the path given (test fixture).
#include <cstdio>

#include "table_builder.h"

int main(int argc, char **argv) {
    if (argc != 2) return 2;
    const st_vorl_tbl t = vorl::tablekit::reference_table();
    return sound_vorl_write_tbl(argv[1], &t) == 0 ? 0 : 1;
}
