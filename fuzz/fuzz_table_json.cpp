// Fuzz target: hostile tables through the JSON conversion and the table
// rules, as "vorl table to-json", "from-json" and "check" meet them.
//
// Input layout (missing bytes read as 0):
//   byte 0   bits 0-1: 0 the rest is laid over the reference table's bytes
//            (then sealed), 1 the rest is a JSON document, 2 or 3 the rest
//            edits the reference table's JSON text (below); bit 2: that
//            text has the readable curves
//   edit     two bytes: where (modulo the text's length), one byte: how many
//            characters to remove there, the rest: what to insert
//
// Whatever from-json accepts must come back bit for bit through to-json,
// with and without curves; anything it refuses must be a JsonError, whose
// message names a field or the parse position. The rules and the learned-
// curve check run on every table that is read and must not fail.
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz_common.h"
#include "table_builder.h"
#include "table_checksum.h"
#include "table_json.h"
#include "table_rules.h"
#include "vorl.h"

using vorl::fuzz::Bytes;
namespace tk = vorl::tablekit;

namespace {

void check_round_trip(const st_vorl_tbl &t) {
    for (const bool curves : {false, true}) {
        const st_vorl_tbl back = tk::table_from_json(tk::table_to_json(t, curves));
        if (std::memcmp(&back, &t, sizeof t) != 0)
            vorl::fuzz::invariant_broken("to-json then from-json changed the table");
    }
}

void check_rules(const st_vorl_tbl &t) {
    const auto broken = tk::check_table_rules(t);
    if (!broken.empty() && tk::summarise(broken).empty()) vorl::fuzz::invariant_broken("empty rule summary");
    for (const auto &v : broken)
        if (v.where.empty() || v.problem.empty())
            vorl::fuzz::invariant_broken("a broken rule without field or problem");
    for (const auto &f : tk::learned_curve_faults(t.st_vorl))
        if (tk::describe(f, t.st_vorl).empty()) vorl::fuzz::invariant_broken("a curve fault without words");
}

std::string edited_reference(Bytes &in, bool curves) {
    std::string text = tk::table_to_json(tk::reference_table(), curves);
    const std::size_t at = (in.u8() | static_cast<std::size_t>(in.u8()) << 8) % text.size();
    const std::size_t removed = in.u8();
    text.replace(at, removed, reinterpret_cast<const char *>(in.data()), in.left());
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Bytes in(data, size);
    const uint8_t flags = in.u8();
    const bool curves = (flags & 4) != 0;

    if ((flags & 3) == 0) {
        st_vorl_tbl t = tk::reference_table();
        in.take(&t, sizeof t);
        tk::seal(t);
        check_rules(t);
        check_round_trip(t);
        return 0;
    }

    const std::string text = (flags & 3) == 1 ? std::string(reinterpret_cast<const char *>(in.data()), in.left())
                                              : edited_reference(in, curves);
    st_vorl_tbl t;
    try {
        t = tk::table_from_json(text);
    } catch (const tk::JsonError &e) {
        if (std::strlen(e.what()) == 0) vorl::fuzz::invariant_broken("a refusal without a reason");
        return 0;
    }
    check_rules(t);
    check_round_trip(t);
    return 0;
}
