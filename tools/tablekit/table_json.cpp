#include "table_json.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <algorithm>
#include <functional>
#include <set>

#include <nlohmann/json.hpp>

#include "table_checksum.h"
#include "table_curves.h"
#include "table_fields.h"

namespace vorl::tablekit {

namespace {

using nlohmann::json;

constexpr uint32_t kQuietNan = 0x7fc00000u;
constexpr int kValuesPerLine = 8;

uint32_t bits_of(float v) {
    uint32_t b;
    std::memcpy(&b, &v, 4);
    return b;
}

float float_of(uint32_t b) {
    float v;
    std::memcpy(&v, &b, 4);
    return v;
}

bool same_bits(float a, float b) { return bits_of(a) == bits_of(b); }

// One element of a field, as JSON text.
std::string format_element(const unsigned char *p, FieldType type) {
    switch (type) {
    case FieldType::F32: {
        float v;
        std::memcpy(&v, p, 4);
        return format_f32(v);
    }
    case FieldType::U8: return std::to_string(*p);
    case FieldType::I16: {
        int16_t v;
        std::memcpy(&v, p, 2);
        return std::to_string(v);
    }
    case FieldType::U32: {
        uint32_t v;
        std::memcpy(&v, p, 4);
        return std::to_string(v);
    }
    }
    return "";
}

// Writes the elements [first, first + count) of a field as a JSON array,
// recursing over the dimensions from `dim` on.
void write_array(std::string &out, const Field &f, const unsigned char *base, std::size_t dim,
                 std::size_t first, const std::string &indent) {
    const std::size_t n = static_cast<std::size_t>(f.shape[dim]);
    std::size_t inner = 1;
    for (std::size_t d = dim + 1; d < f.shape.size(); ++d) inner *= static_cast<std::size_t>(f.shape[d]);
    const std::string deeper = indent + "  ";
    out += "[\n";
    for (std::size_t i = 0; i < n; ++i) {
        if (dim + 1 < f.shape.size()) {
            out += deeper;
            write_array(out, f, base, dim + 1, first + i * inner, deeper);
        } else {
            if (i % kValuesPerLine == 0) out += deeper;
            out += format_element(base + f.offset + (first + i) * f.element_size(), f.type);
        }
        if (i + 1 < n) out += (dim + 1 < f.shape.size() || i % kValuesPerLine == kValuesPerLine - 1) ? ",\n" : ", ";
    }
    out += "\n" + indent + "]";
}

void write_field(std::string &out, const Field &f, const unsigned char *base, const std::string &indent,
                 bool last) {
    out += indent + "\"" + f.name + "\": ";
    if (f.shape.empty())
        out += format_element(base + f.offset, f.type);
    else
        write_array(out, f, base, 0, 0, indent);
    out += last ? "\n" : ",\n";
}

[[noreturn]] void fail(const std::string &where, const std::string &what) {
    throw JsonError(where + ": " + what);
}

float parse_f32(const json &v, const std::string &where) {
    if (v.is_number()) {
        // From FLT_MAX plus half a step on, a double rounds to infinity.
        const double d = v.get<double>();
        if (!(std::fabs(d) < 0x1.ffffffp127))
            fail(where, "number out of the float range (write \"inf\" for infinity)");
        return static_cast<float>(d);
    }
    if (v.is_string()) {
        const std::string s = v.get<std::string>();
        if (s == "inf") return float_of(0x7f800000u);
        if (s == "-inf") return float_of(0xff800000u);
        if (s == "nan") return float_of(kQuietNan);
        if (s.rfind("nan:0x", 0) == 0 && s.size() == 14) {
            char *end = nullptr;
            const unsigned long b = std::strtoul(s.c_str() + 6, &end, 16);
            const float f = float_of(static_cast<uint32_t>(b));
            if (*end == '\0' && std::isnan(f)) return f;
        }
        fail(where, "\"" + s + "\" is not a float (use a number, \"inf\", \"-inf\", \"nan\" or \"nan:0x7fc00001\")");
    }
    fail(where, "expected a number, found " + std::string(v.type_name()));
}

int64_t parse_integer(const json &v, const std::string &where, int64_t lo, int64_t hi) {
    if (!v.is_number_integer()) fail(where, "expected an integer, found " + v.dump());
    const std::string range = " is outside " + std::to_string(lo) + ".." + std::to_string(hi);
    if (v.is_number_unsigned()) {
        const uint64_t u = v.get<uint64_t>();
        if (u > static_cast<uint64_t>(hi)) fail(where, std::to_string(u) + range);
        return static_cast<int64_t>(u);
    }
    const int64_t x = v.get<int64_t>();
    if (x < lo || x > hi) fail(where, std::to_string(x) + range);
    return x;
}

void store_element(const json &v, const Field &f, std::size_t flat, unsigned char *base) {
    unsigned char *p = base + f.offset + flat * f.element_size();
    const std::string where = element_name(f, flat);
    switch (f.type) {
    case FieldType::F32: {
        const float x = parse_f32(v, where);
        std::memcpy(p, &x, 4);
        break;
    }
    case FieldType::U8: *p = static_cast<unsigned char>(parse_integer(v, where, 0, 255)); break;
    case FieldType::I16: {
        const auto x = static_cast<int16_t>(parse_integer(v, where, INT16_MIN, INT16_MAX));
        std::memcpy(p, &x, 2);
        break;
    }
    case FieldType::U32: {
        const auto x = static_cast<uint32_t>(parse_integer(v, where, 0, UINT32_MAX));
        std::memcpy(p, &x, 4);
        break;
    }
    }
}

void read_array(const json &v, const Field &f, std::size_t dim, std::size_t first, unsigned char *base,
                const std::string &where) {
    const std::size_t n = static_cast<std::size_t>(f.shape[dim]);
    if (!v.is_array()) fail(where, "expected an array of " + std::to_string(n) + ", found " + v.type_name());
    if (v.size() != n)
        fail(where, "expected " + std::to_string(n) + " entries, found " + std::to_string(v.size()));
    std::size_t inner = 1;
    for (std::size_t d = dim + 1; d < f.shape.size(); ++d) inner *= static_cast<std::size_t>(f.shape[d]);
    for (std::size_t i = 0; i < n; ++i) {
        if (dim + 1 < f.shape.size())
            read_array(v[i], f, dim + 1, first + i * inner, base, where + "[" + std::to_string(i) + "]");
        else
            store_element(v[i], f, first + i, base);
    }
}

void read_field(const json &v, const Field &f, unsigned char *base) {
    if (f.shape.empty())
        store_element(v, f, 0, base);
    else
        read_array(v, f, 0, 0, base, f.name);
}

// Reads the fields of one section from an object; every key must be known,
// and every field present unless `optional` names it.
void read_section(const json &obj, const Section &s, unsigned char *base, const std::string &where,
                  const std::set<std::string> &optional = {}) {
    if (!obj.is_object()) fail(where, "expected an object");
    std::set<std::string> seen;
    for (const auto &item : obj.items()) {
        const Field *f = nullptr;
        for (const Field &cand : s.fields)
            if (item.key() == cand.name) f = &cand;
        if (f == nullptr) fail(where + item.key(), "unknown field");
        read_field(item.value(), *f, base);
        seen.insert(item.key());
    }
    for (const Field &f : s.fields)
        if (seen.count(f.name) == 0 && optional.count(f.name) == 0) fail(where + f.name, "missing field");
}

// ---- curves by node value

constexpr const char *kCurveFields[] = {"zspec_comp_coef_f_LR_d", "back_ground_noise", "eq_gain"};

// One curve's nodes: {"band"/"group": n, "bin": .., "hz": .., "value": ..}.
void write_nodes(std::string &out, const char *key, const tablekit::BinCurve &curve, const uint8_t *band_bins,
                 int count, const std::string &indent) {
    out += "[\n";
    for (int n = 0; n < count; ++n) {
        const int bin = band_bins ? band_bins[n] : group_node_bin(n);
        char hz[32];
        std::snprintf(hz, sizeof hz, "%.2f", bin_hz(bin));
        out += indent + "  {\"" + key + "\": " + std::to_string(n) + ", \"bin\": " + std::to_string(bin) +
               ", \"hz\": " + hz + ", \"value\": " + format_f32(curve[bin]) + "}" + (n + 1 < count ? ",\n" : "\n");
    }
    out += indent + "]";
}

std::string curves_json(const st_vorl &p) {
    std::string out = "  \"curves\": {\n    \"zspec_comp_coef_f_LR_d\": [\n";
    for (int ch = 0; ch < 2; ++ch) {
        out += "      ";
        write_nodes(out, "band", zoom_curve(p, ch), p.zspec_comp_base_bin, kBands, "      ");
        out += ch == 0 ? ",\n" : "\n";
    }
    out += "    ],\n    \"back_ground_noise\": [\n";
    for (int t = 0; t < 3; ++t) {
        out += "      [\n";
        for (int ch = 0; ch < 2; ++ch) {
            out += "        ";
            write_nodes(out, "group", group_curve(p.back_ground_noise[t][ch]), nullptr, kGroups, "        ");
            out += ch == 0 ? ",\n" : "\n";
        }
        out += t < 2 ? "      ],\n" : "      ]\n";
    }
    out += "    ],\n    \"eq_gain\": ";
    write_nodes(out, "group", group_curve(p.eq_gain), nullptr, kGroups, "    ");
    out += "\n  },\n";
    return out;
}

// Reads one curve's node values into `values`, checking count and bins.
void read_nodes(const json &v, const std::string &where, const char *key, const uint8_t *band_bins, int count,
                float *values) {
    if (!v.is_array()) fail(where, "expected an array of " + std::to_string(count) + " nodes, found " + v.type_name());
    if (static_cast<int>(v.size()) != count)
        fail(where, "expected " + std::to_string(count) + " nodes, found " + std::to_string(v.size()) +
                        " (a node's value may change, not the nodes themselves)");
    for (int n = 0; n < count; ++n) {
        const std::string at = where + "[" + std::to_string(n) + "]";
        const json &node = v[static_cast<std::size_t>(n)];
        if (!node.is_object() || !node.contains("value") || !node.contains("bin"))
            fail(at, "expected {\"" + std::string(key) + "\": .., \"bin\": .., \"hz\": .., \"value\": ..}");
        for (const auto &item : node.items())
            if (item.key() != key && item.key() != "bin" && item.key() != "hz" && item.key() != "value")
                fail(at + "." + item.key(), "unknown field");
        const int bin = band_bins ? band_bins[n] : group_node_bin(n);
        if (parse_integer(node["bin"], at + ".bin", 0, 255) != bin)
            fail(at + ".bin", "the node lies at bin " + std::to_string(bin) + " in this table");
        values[n] = parse_f32(node["value"], at + ".value");
    }
}

// Stores node values as increments unless the increments already rebuild them.
void apply_nodes(const float *values, const tablekit::BinCurve &rebuilt, const uint8_t *band_bins, int count,
                 bool have_increments, const std::function<void()> &store) {
    bool same_curve = have_increments;
    for (int n = 0; n < count && same_curve; ++n)
        same_curve = same_bits(rebuilt[band_bins ? band_bins[n] : group_node_bin(n)], values[n]);
    if (!same_curve) store();
}

void read_curves(const json &c, st_vorl &p, const std::set<std::string> &given) {
    if (!c.is_object()) fail("curves", "expected an object");
    for (const auto &item : c.items())
        if (std::find(std::begin(kCurveFields), std::end(kCurveFields), item.key()) == std::end(kCurveFields))
            fail("curves." + item.key(), "unknown curve");
    float values[kGroups];
    if (c.contains("zspec_comp_coef_f_LR_d")) {
        const json &rows = c["zspec_comp_coef_f_LR_d"];
        if (!rows.is_array() || rows.size() != 2) fail("curves.zspec_comp_coef_f_LR_d", "expected [left, right]");
        float z[2][kBands];
        for (int ch = 0; ch < 2; ++ch)
            read_nodes(rows[static_cast<std::size_t>(ch)], "curves.zspec_comp_coef_f_LR_d[" + std::to_string(ch) + "]",
                       "band", p.zspec_comp_base_bin, kBands, z[ch]);
        for (int ch = 0; ch < 2; ++ch)
            apply_nodes(z[ch], zoom_curve(p, ch), p.zspec_comp_base_bin, kBands,
                        given.count("zspec_comp_coef_f_LR_d") != 0, [&] { set_zoom_nodes(p, ch, z[ch]); });
    }
    if (c.contains("back_ground_noise")) {
        const json &t = c["back_ground_noise"];
        if (!t.is_array() || t.size() != 3) fail("curves.back_ground_noise", "expected [AF, WT, TW]");
        for (int k = 0; k < 3; ++k) {
            const json &rows = t[static_cast<std::size_t>(k)];
            const std::string where = "curves.back_ground_noise[" + std::to_string(k) + "]";
            if (!rows.is_array() || rows.size() != 2) fail(where, "expected [left, right]");
            for (int ch = 0; ch < 2; ++ch) {
                read_nodes(rows[static_cast<std::size_t>(ch)], where + "[" + std::to_string(ch) + "]", "group", nullptr,
                           kGroups, values);
                float *inc = p.back_ground_noise[k][ch];
                apply_nodes(values, group_curve(inc), nullptr, kGroups, given.count("back_ground_noise") != 0,
                            [&] { set_group_nodes(inc, values); });
            }
        }
    }
    if (c.contains("eq_gain")) {
        read_nodes(c["eq_gain"], "curves.eq_gain", "group", nullptr, kGroups, values);
        apply_nodes(values, group_curve(p.eq_gain), nullptr, kGroups, given.count("eq_gain") != 0,
                    [&] { set_group_nodes(p.eq_gain, values); });
    }
}

}  // namespace

std::string format_f32(float v) {
    char buf[40];
    const uint32_t b = bits_of(v);
    if (std::isnan(v)) {
        if (b == kQuietNan) return "\"nan\"";
        std::snprintf(buf, sizeof buf, "\"nan:0x%08" PRIx32 "\"", b);
        return buf;
    }
    if (std::isinf(v)) return v > 0 ? "\"inf\"" : "\"-inf\"";
    if (v == 0.0f) return std::signbit(v) ? "-0.0" : "0";
    for (int digits = 1; digits <= 9; ++digits) {
        std::snprintf(buf, sizeof buf, "%.*g", digits, static_cast<double>(v));
        // Both a direct float parse and the double route of JSON readers
        // must give back the same bits.
        if (same_bits(std::strtof(buf, nullptr), v) &&
            same_bits(static_cast<float>(std::strtod(buf, nullptr)), v))
            return buf;
    }
    std::snprintf(buf, sizeof buf, "%.17g", static_cast<double>(v));  // exact as a double
    return buf;
}

std::string table_to_json(const st_vorl_tbl &t, bool curves) {
    const auto *base = reinterpret_cast<const unsigned char *>(&t);
    const auto &sections = table_sections();
    char version[16];
    std::snprintf(version, sizeof version, "0x%08" PRIx32, t.tbl_version);
    std::string out = "{\n  \"tbl_version\": \"" + std::string(version) + "\",\n";
    for (std::size_t s = 1; s < sections.size(); ++s) {
        out += "  \"" + std::string(sections[s].name) + "\": {\n";
        const auto &fields = sections[s].fields;
        for (std::size_t i = 0; i < fields.size(); ++i)
            write_field(out, fields[i], base, "    ", i + 1 == fields.size());
        out += "  },\n";
    }
    if (curves) out += curves_json(t.st_vorl);
    out += "  \"tbl_cnt\": " + std::to_string(t.tbl_cnt) + "\n}\n";
    return out;
}

st_vorl_tbl table_from_json(const std::string &text) {
    json doc;
    try {
        doc = json::parse(text);
    } catch (const json::exception &e) {  // syntax, or a number beyond a double (1e400)
        // The parser's own text, without its "[json.exception...]" tag.
        const std::string what = e.what();
        const auto tag_end = what.find("] ");
        throw JsonError("not valid JSON: " + (tag_end == std::string::npos ? what : what.substr(tag_end + 2)));
    }
    if (!doc.is_object()) throw JsonError("the document must be a JSON object");

    st_vorl_tbl t;
    std::memset(&t, 0, sizeof t);
    auto *base = reinterpret_cast<unsigned char *>(&t);
    const auto &sections = table_sections();
    const std::set<std::string> top = {"tbl_version", "st_vorl", "st_vorlc", "tbl_cnt"};
    for (const auto &item : doc.items())
        if (top.count(item.key()) == 0 && item.key() != "curves")
            fail(item.key(), item.key() == "check_sum" ? "not accepted: the checksum is computed" : "unknown field");
    for (const std::string &key : top)
        if (!doc.contains(key)) fail(key, "missing field");

    const json &version = doc["tbl_version"];
    if (!version.is_string()) fail("tbl_version", "expected a string such as \"0x01030000\"");
    const std::string vs = version.get<std::string>();
    char *end = nullptr;
    const unsigned long long v = std::strtoull(vs.c_str(), &end, 16);
    if (vs.rfind("0x", 0) != 0 || vs.size() < 3 || *end != '\0' || v > UINT32_MAX)
        fail("tbl_version", "\"" + vs + "\" is not a 32-bit hexadecimal word such as \"0x01030000\"");
    t.tbl_version = static_cast<uint32_t>(v);
    t.tbl_cnt = static_cast<uint32_t>(parse_integer(doc["tbl_cnt"], "tbl_cnt", 0, UINT32_MAX));
    // A curve given by its node values may stand for its increments field.
    std::set<std::string> by_value, given;
    if (doc.contains("curves") && doc["curves"].is_object())
        for (const char *name : kCurveFields)
            if (doc["curves"].contains(name)) by_value.insert(name);
    read_section(doc["st_vorl"], sections[1], base, "st_vorl.", by_value);
    for (const auto &item : doc["st_vorl"].items()) given.insert(item.key());
    read_section(doc["st_vorlc"], sections[2], base, "st_vorlc.");
    if (doc.contains("curves")) read_curves(doc["curves"], t.st_vorl, given);
    seal(t);
    return t;
}

}  // namespace vorl::tablekit
