#include "host_session.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli.h"
#include "pending_file.h"
#include "table_store.h"

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

}  // namespace

HostSession::HostSession(const st_vorl_tbl &table, const std::string &table_name, bool pulse_filter)
    : table_name_(table_name), table_copy_(&table, sizeof table) {
    VORLGetResourceSize(&res_);
    const std::size_t bytes = std::max<std::size_t>(res_.resource_size, sizeof(VORLWorkArea));
    storage_.assign((bytes + 7) / 8, 0);
    res_.p_work = storage_.data();
    res_.p_tbl_path = table_copy_.path().c_str();
    VORLGetResourceInfo(&res_);
    VORLInitialize(&res_);
    const int32_t status = VORLPreProcess(&res_);
    if (status != VORL_OK) cli::input_error(status_problem(status, table_name_));
    work().pulse_proc_flag = pulse_filter ? 1u : 0u;
}

VORLWorkArea &HostSession::work() { return *static_cast<VORLWorkArea *>(res_.p_work); }
const VORLWorkArea &HostSession::work() const { return *static_cast<const VORLWorkArea *>(res_.p_work); }

void HostSession::process(const int16_t *in, int16_t *out, const DriveWords &recorded) {
    hand_drive_words(&res_, onset_, recorded, follow_af_);
    for (std::size_t i = 0; i < VORL_BLOCK_FRAMES; ++i) {
        res_.p_in_ch0[i] = in[2 * i];
        res_.p_in_ch1[i] = in[2 * i + 1];
    }
    tally_.enter(&res_);
    std::memcpy(out, res_.p_out, VORL_BLOCK_FRAMES * 2 * sizeof(int16_t));
}

void HostSession::prime(const int16_t *in, std::size_t frames, const DriveWords &drive) {
    int16_t block[2 * VORL_BLOCK_FRAMES], out[2 * VORL_BLOCK_FRAMES];
    for (std::size_t b = 0; b < kPrimeBlocks; ++b) {
        for (std::size_t i = 0; i < 2 * VORL_BLOCK_FRAMES; ++i) {
            const std::size_t at = 2 * b * VORL_BLOCK_FRAMES + i;
            block[i] = at < 2 * frames ? in[at] : int16_t{0};
        }
        process(block, out, drive);
    }
    const uint32_t pulse = work().pulse_proc_flag;
    VORLInitialize(&res_);  // rings and output area only; the engine's state stays
    work().pulse_proc_flag = pulse;
    onset_.reset();
    tally_ = LearningTally{};
}

uint32_t HostSession::learn_count() const { return sound_vorl_info_get(&work().inst); }

const st_vorl &HostSession::working_parameters() const { return work().ws.st_vorl_work; }

LearnVerdict HostSession::learned_table() {
    LearnVerdict v;
    v.updates = learn_count();
    v.faults = tablekit::learned_curve_faults(working_parameters());
    v.passed = v.faults.empty();
    if (!v.passed) return v;
    res_.p_tbl_path = nullptr;  // the library updates its image only; save_table writes the file
    VORLPostProcess(&res_);     // passes its check too, so takes the learned curve
    const auto &learned = working_parameters().zspec_comp_coef_f_LR_d;
    if (std::memcmp(work().tbl.st_vorl.zspec_comp_coef_f_LR_d, learned, sizeof learned) != 0)
        cli::input_error("cannot save the learned table: the library did not write back what it learned");
    return v;
}

void HostSession::save_table(const std::string &path) const {
    // The library saves its table image to a named file; standard output
    // gets the same image.
    if (path == "-") return write_table(path, work().tbl);
    if (VORLSaveTable(&res_, resolve_links(path).c_str()) != VORL_OK)  // through symbolic links, as outputs
        cli::input_error(path + ": cannot save the learned table: " + std::strerror(errno));
}

void HostSession::print_table() const {
    std::fflush(stdout);
    sound_vorl_print_tbl(&work().inst);
    std::fflush(stdout);
}

}  // namespace vorl
