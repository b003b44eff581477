#include "table_store.h"

#include <cstring>

#include <unistd.h>

#include "cli.h"
#include "default_table.h"
#include "pending_file.h"
#include "table_rules.h"

namespace vorl {

st_vorl_tbl read_table(const std::string &path) {
    const std::string bytes = read_file(path, "tuning table", 1 << 20);  // the size is checked below
    const std::string name = cli::input_name(path);
    if (bytes.size() != VORL_TBL_SIZE)
        cli::input_error(name + ": " + std::to_string(bytes.size()) + " bytes, a tuning table has " +
                         std::to_string(VORL_TBL_SIZE));
    st_vorl_tbl t;
    std::memcpy(&t, bytes.data(), sizeof t);
    return t;
}

void check_table_destination(const std::string &path) {
    if (path == "-" && isatty(STDOUT_FILENO))
        cli::usage_error("standard output is a terminal; redirect it or name a table file");
}

void write_table(const std::string &path, const st_vorl_tbl &t) {
    check_table_destination(path);
    write_output(path, &t, sizeof t);
}

std::string broken_rules(const std::string &path, const st_vorl_tbl &t) {
    const auto broken = tablekit::check_table_rules(t);
    if (broken.empty()) return {};
    return cli::input_name(path) + ": breaks " + std::to_string(broken.size()) + " table rule" + (broken.size() == 1 ? "" : "s") +
           ", first " + broken.front().where + ": " + broken.front().problem + " (see: vorl table check " + path + ")";
}

st_vorl_tbl default_table() {
    static_assert(sizeof kDefaultTable == sizeof(st_vorl_tbl), "embedded table has the file's size");
    st_vorl_tbl t;
    std::memcpy(&t, kDefaultTable, sizeof t);
    return t;
}

}  // namespace vorl
