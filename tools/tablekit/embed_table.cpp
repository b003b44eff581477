// Build step: turns the default table's JSON into a C++ source holding its
// binary image, and fails the build if the table breaks a table rule.
#include <cstdio>
#include <fstream>
#include <sstream>

#include "table_json.h"
#include "table_rules.h"

int main(int argc, char **argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s TABLE.json OUT.cpp\n", argv[0]);
        return 1;
    }
    std::ifstream in(argv[1]);
    std::stringstream text;
    text << in.rdbuf();
    if (!in) {
        std::fprintf(stderr, "%s: cannot read\n", argv[1]);
        return 1;
    }
    st_vorl_tbl t;
    try {
        t = vorl::tablekit::table_from_json(text.str());
    } catch (const std::exception &e) {
        std::fprintf(stderr, "%s: %s\n", argv[1], e.what());
        return 1;
    }
    const auto violations = vorl::tablekit::check_table_rules(t);
    for (const auto &v : violations) std::fprintf(stderr, "%s: %s: %s\n", argv[1], v.where.c_str(), v.problem.c_str());
    if (!violations.empty()) return 1;

    std::ostringstream out;
    out << "// Generated from " << argv[1] << " by vorl_embed_table; do not edit.\n"
        << "#include \"default_table.h\"\n\nnamespace vorl {\nconst unsigned char kDefaultTable[VORL_TBL_SIZE] = {";
    const auto *bytes = reinterpret_cast<const unsigned char *>(&t);
    for (unsigned i = 0; i < sizeof t; ++i) out << (i % 16 == 0 ? "\n    " : " ") << static_cast<int>(bytes[i]) << ",";
    out << "\n};\n}  // namespace vorl\n";
    std::ofstream(argv[2]) << out.str();
    return 0;
}
