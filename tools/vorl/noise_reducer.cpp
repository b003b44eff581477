#include "noise_reducer.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <unistd.h>

#include "cli.h"

namespace vorl {

namespace {

std::string status_problem(int32_t status, const std::string &table_name) {
    switch (status) {
    case VORL_ERR_TBL_OPEN: return table_name + ": cannot open the tuning table";
    case VORL_ERR_CHECKSUM:
        return table_name + ": checksum wrong, the tuning table is damaged (vorl table check shows more)";
    case VORL_ERR_VERSION: return table_name + ": unsupported tuning-table version (expected 0x01030000)";
    default: return table_name + ": the library refused the tuning table (status " + std::to_string(status) + ")";
    }
}

// Runs `call` with the standard error stream sent to a temporary file and
// returns what was written there.
template <typename Call>
std::string capture_stderr(Call call) {
    std::FILE *sink = std::tmpfile();
    if (sink == nullptr) {
        call();
        return "";
    }
    std::fflush(stderr);
    const int saved = dup(STDERR_FILENO);
    dup2(fileno(sink), STDERR_FILENO);
    call();
    std::fflush(stderr);
    dup2(saved, STDERR_FILENO);
    close(saved);
    std::string text;
    std::rewind(sink);
    char buf[512];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, sink)) > 0;) text.append(buf, n);
    std::fclose(sink);
    return text;
}

}  // namespace

NoiseReducer::NoiseReducer(const std::string &table_path, const std::string &table_name, bool pulse_filter)
    : table_path_(table_path) {
    VORLGetResourceSize(&res_);
    const std::size_t bytes = std::max<std::size_t>(res_.resource_size, sizeof(VORLWorkArea));
    storage_.assign((bytes + 7) / 8, 0);
    res_.p_work = storage_.data();
    res_.p_tbl_path = table_path_.c_str();
    VORLGetResourceInfo(&res_);
    VORLInitialize(&res_);
    const int32_t status = VORLPreProcess(&res_);
    if (status != VORL_OK) cli::input_error(status_problem(status, table_name));
    uint32_t flag = pulse_filter ? 1u : 0u;
    std::memcpy(static_cast<char *>(res_.p_work) + VORL_OFS_PULSE_FLAG, &flag, sizeof flag);
}

VORLWorkArea &NoiseReducer::work() { return *static_cast<VORLWorkArea *>(res_.p_work); }
const VORLWorkArea &NoiseReducer::work() const { return *static_cast<const VORLWorkArea *>(res_.p_work); }

void NoiseReducer::process(const int16_t *in, int16_t *out, const DriveWords &drive) {
    VORLSetDriveState(&res_, drive.zoom, drive.af, drive.wind);
    for (std::size_t i = 0; i < VORL_BLOCK_FRAMES; ++i) {
        res_.p_in_ch0[i] = in[2 * i];
        res_.p_in_ch1[i] = in[2 * i + 1];
    }
    VORLEnterLibrary(&res_);
    std::memcpy(out, res_.p_out, VORL_BLOCK_FRAMES * 2 * sizeof(int16_t));
}

uint32_t NoiseReducer::learn_count() const { return sound_vorl_info_get(&work().inst); }

LearnOutcome NoiseReducer::finish() {
    LearnOutcome outcome;
    outcome.diagnostics = capture_stderr([this] { VORLPostProcess(&res_); });
    outcome.passed = outcome.diagnostics.empty();
    return outcome;
}

}  // namespace vorl
