#include "drive_schedule.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <utility>

#include "cli.h"
#include "pending_file.h"

namespace vorl {

namespace {

bool covers(const std::vector<TimeRange> &ranges, double t) {
    for (const TimeRange &r : ranges)
        if (r.start <= t && t < r.end) return true;
    return false;
}

std::string describe(const TimeRange &r) {
    std::ostringstream s;
    s << r.start << "-" << r.end;
    return s.str();
}

bool parse_seconds(const std::string &text, double &out) {
    if (text.empty()) return false;
    char *end = nullptr;
    errno = 0;
    out = std::strtod(text.c_str(), &end);
    return errno == 0 && *end == '\0' && std::isfinite(out) && out >= 0.0;
}

bool all_digits(const std::string &text, std::size_t most) {
    return !text.empty() && text.size() <= most && text.find_first_not_of("0123456789") == std::string::npos;
}

// A time: seconds ("95.5"), or minutes and seconds ("1:35.5"), or hours,
// minutes and seconds ("1:01:35.5"), as players and editors show times.
bool parse_time(const std::string &text, double &out) {
    if (text.find(':') == std::string::npos) return parse_seconds(text, out);
    std::vector<std::string> fields;
    for (std::size_t begin = 0, colon; ; begin = colon + 1) {
        colon = text.find(':', begin);
        fields.push_back(text.substr(begin, colon - begin));
        if (colon == std::string::npos) break;
    }
    if (fields.size() > 3) return false;
    double total = 0.0;  // whole minutes
    for (std::size_t i = 0; i + 1 < fields.size(); ++i) {
        if (!all_digits(fields[i], 6)) return false;
        const double value = std::stod(fields[i]);
        if (i > 0 && value >= 60.0) return false;  // minutes after hours
        total = total * 60.0 + value;
    }
    const std::string &seconds = fields.back();
    const std::size_t point = seconds.find('.');
    if (!all_digits(seconds.substr(0, point), 2) ||
        (point != std::string::npos && !all_digits(seconds.substr(point + 1), 9)))
        return false;
    const double within = std::stod(seconds);
    out = total * 60.0 + within;
    return within < 60.0;
}

// A non-negative integer field of a drive-file line.
bool parse_word(std::istringstream &in, uint64_t &out) {
    std::string tok;
    if (!(in >> tok)) return false;
    char *end = nullptr;
    errno = 0;
    out = std::strtoull(tok.c_str(), &end, 10);
    return errno == 0 && *end == '\0' && tok[0] != '-' && out <= UINT32_MAX;
}

// A spreadsheet's column names, "zoom af wind" in any case.
bool is_header(std::string words) {
    std::transform(words.begin(), words.end(), words.begin(), [](unsigned char c) { return std::tolower(c); });
    std::istringstream in(words);
    std::string zoom, af, wind, extra;
    return in >> zoom >> af >> wind && zoom == "zoom" && af == "af" && wind == "wind" && !(in >> extra);
}

}  // namespace

std::vector<TimeRange> parse_ranges(const std::string &value, const std::string &option) {
    std::vector<TimeRange> out;
    std::size_t begin = 0;
    while (true) {  // every comma-separated item, empty ones included
        const std::size_t comma = value.find(',', begin);
        const std::string item = value.substr(begin, comma == std::string::npos ? std::string::npos : comma - begin);
        const auto dash = item.find('-');
        TimeRange r{};
        if (dash == std::string::npos || !parse_time(item.substr(0, dash), r.start) ||
            !parse_time(item.substr(dash + 1), r.end))
            cli::usage_error("--" + option + " " + value +
                             ": expected START-END in seconds or [H:]M:S, e.g. 1.5-3.2 or 1:02.5-1:04");
        if (!(r.start < r.end))
            cli::usage_error("--" + option + " " + value + ": range " + item + " ends before it starts");
        out.push_back(r);
        if (comma == std::string::npos) return out;
        begin = comma + 1;
    }
}

DriveSchedule DriveSchedule::from_file(const std::string &path) {
    std::string text = read_file(path, "drive file");
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);  // a UTF-8 mark some editors add
    std::istringstream in(text);
    DriveSchedule s;
    s.file_given_ = true;
    s.file_ = cli::input_name(path);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        // Words may be followed by a note ("# zoom starts") and separated by
        // commas or semicolons as a spreadsheet exports them.
        std::string words = line.substr(0, line.find('#'));
        std::replace_if(words.begin(), words.end(), [](char c) { return c == ',' || c == ';'; }, ' ');
        if (words.find_first_not_of(" \t\r") == std::string::npos) continue;
        if (s.by_block_.empty() && is_header(words)) continue;
        std::istringstream fields(words);
        uint64_t zoom, af, wind;
        std::string extra;
        const std::string where = s.file_ + ":" + std::to_string(number) + ": ";
        if (!parse_word(fields, zoom) || !parse_word(fields, af) || !parse_word(fields, wind) || (fields >> extra))
            cli::input_error(where + "expected three non-negative integers \"zoom af wind\", found \"" +
                             cli::excerpt(line) + "\"");
        if (zoom > 2) cli::input_error(where + "zoom must be 0 (idle), 1 (zoom-in) or 2 (zoom-out), found " + std::to_string(zoom));
        if (wind > 1) cli::input_error(where + "wind must be 0 or 1, found " + std::to_string(wind));
        s.by_block_.push_back({static_cast<uint32_t>(zoom), static_cast<uint32_t>(af), static_cast<uint32_t>(wind)});
    }
    return s;
}

DriveSchedule DriveSchedule::from_words(std::vector<DriveWords> words, std::string name) {
    DriveSchedule s;
    s.file_given_ = true;
    s.file_ = std::move(name);
    s.by_block_ = std::move(words);
    return s;
}

void write_drive_file(const std::string &path, const std::vector<DriveWords> &words) {
    std::string text = "# zoom af wind, one line per 256-frame block\n";
    for (const DriveWords &w : words)
        text += std::to_string(w.zoom) + " " + std::to_string(w.af) + " " + std::to_string(w.wind) + "\n";
    write_output(path, text.data(), text.size());
}

void DriveSchedule::add_zoom_in(const std::string &v, const std::string &o) {
    for (const auto &r : parse_ranges(v, o)) zoom_in_.push_back(r);
}
void DriveSchedule::add_zoom_out(const std::string &v, const std::string &o) {
    for (const auto &r : parse_ranges(v, o)) zoom_out_.push_back(r);
}
void DriveSchedule::add_af(const std::string &v, const std::string &o) {
    for (const auto &r : parse_ranges(v, o)) af_.push_back(r);
}
void DriveSchedule::add_wind(const std::string &v, const std::string &o) {
    for (const auto &r : parse_ranges(v, o)) wind_.push_back(r);
}

void DriveSchedule::check_conflicts() const {
    for (const TimeRange &a : zoom_in_)
        for (const TimeRange &b : zoom_out_)
            if (a.start < b.end && b.start < a.end)
                cli::usage_error("--zoom-in " + describe(a) + " overlaps --zoom-out " + describe(b) +
                                 ": the zoom drives one way at a time");
}

bool DriveSchedule::has_af() const {
    if (!af_.empty()) return true;
    for (const DriveWords &w : by_block_)
        if (w.af != 0) return true;
    return false;
}

std::vector<std::string> DriveSchedule::mismatches(int64_t frames, int rate, const std::string &audio,
                                                   int recorded_rate) const {
    std::vector<std::string> out;
    const int64_t blocks = (frames + 255) / 256;
    char length[96];
    if (recorded_rate != 0 && recorded_rate != rate)
        std::snprintf(length, sizeof length, "%lld blocks of 256 frames at %d Hz (%.2f s)",
                      static_cast<long long>(blocks), rate, static_cast<double>(frames) / rate);
    else
        std::snprintf(length, sizeof length, "%lld blocks (%.2f s)", static_cast<long long>(blocks),
                      static_cast<double>(frames) / rate);
    if (file_given_ && static_cast<int64_t>(by_block_.size()) != blocks)
        out.push_back(file_ + ": " + std::to_string(by_block_.size()) + " block lines, but " + audio + " has " +
                      length + (static_cast<int64_t>(by_block_.size()) < blocks
                                    ? "; the blocks past the file's end are idle"
                                    : "; the lines past the recording's end are unused"));
    const double duration = static_cast<double>(frames) / rate;
    char seconds_text[32];
    std::snprintf(seconds_text, sizeof seconds_text, "%.2f s", duration);
    const std::pair<const char *, const std::vector<TimeRange> *> options[] = {
        {"zoom-in", &zoom_in_}, {"zoom-out", &zoom_out_}, {"af", &af_}, {"wind", &wind_}};
    for (const auto &[name, ranges] : options)
        for (const TimeRange &r : *ranges)
            if (r.end > duration)
                out.push_back(std::string("--") + name + " " + describe(r) +
                              (r.start >= duration ? " lies beyond the end of " : " reaches past the end of ") +
                              audio + " (" + std::string(seconds_text) + ")");
    return out;
}

DriveWords DriveSchedule::at(int64_t block, double rate) const {
    if (file_given_) {
        if (block < 0 || static_cast<std::size_t>(block) >= by_block_.size()) return {};
        return by_block_[static_cast<std::size_t>(block)];
    }
    const double t = static_cast<double>(block) * 256.0 / rate;  // the block's first frame
    DriveWords w;
    if (covers(zoom_in_, t)) w.zoom = 1;
    if (covers(zoom_out_, t)) w.zoom = 2;
    w.af = covers(af_, t) ? 1 : 0;
    w.wind = covers(wind_, t) ? 1 : 0;
    return w;
}

bool DriveSchedule::file_within(int64_t blocks, int64_t slack) const {
    const auto lines = static_cast<int64_t>(by_block_.size());
    return lines >= blocks - slack && lines <= blocks + slack;
}

DriveWords DriveSchedule::at_engine_rate(int64_t block, int rate, int engine_rate) const {
    if (!file_given_ || rate == engine_rate) return at(block, rate);
    return at(block * engine_rate / rate, engine_rate);
}

int64_t frames_at_rate(int64_t frames, int rate, int to_rate) {
    return rate == to_rate ? frames : static_cast<int64_t>(std::llround(static_cast<double>(frames) * to_rate / rate));
}

}  // namespace vorl
