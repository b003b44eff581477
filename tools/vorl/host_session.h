// One noise-reduction instance brought up through the library's host
// interface only: resource query, initialisation, table load, one call per
// block, and the learned table at the end. Library statuses become messages
// that name the table.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "drive_onset.h"
#include "drive_schedule.h"
#include "learning_tally.h"
#include "pending_file.h"
#include "table_rules.h"
#include "vorl.h"

namespace vorl {

struct LearnVerdict {
    bool passed = false;                     // the curve passed the plausibility check
    uint32_t updates = 0;                    // learning updates applied this run
    std::vector<tablekit::CurveFault> faults;  // why it failed, empty when it passed
};

class HostSession {
public:
    // Loads `table` into a fresh instance; `table_name` is what the user
    // calls it, for messages. Input error when the library refuses it.
    HostSession(const st_vorl_tbl &table, const std::string &table_name, bool pulse_filter = false);
    HostSession(const HostSession &) = delete;
    HostSession &operator=(const HostSession &) = delete;

    // One block: 256 interleaved stereo frames in, the block finished 768
    // frames earlier out. `recorded` describes the block handed in; the
    // library gets it through a DriveOnsetDelay (drive_onset.h).
    void process(const int16_t *in, int16_t *out, const DriveWords &recorded);

    // Before the first block: runs the recording's first kPrimeBlocks
    // blocks (interleaved, `frames` of them available; silence after) with
    // `drive`, the first block's words, then clears the input rings and the
    // output area again (VORLInitialize). The gain memory then starts where
    // the recording starts instead of at 0, so the first 20 ms no longer
    // fade in; the blocks processed afterwards are the library's own
    // results from that state. The learning and control counters advance
    // too: a learning run should not prime.
    void prime(const int16_t *interleaved, std::size_t frames, const DriveWords &drive);
    static constexpr std::size_t kPrimeBlocks = 16;

    // From now on each block's autofocus word switches the table's "AF"
    // background template: on in autofocus blocks, off in other blocks
    // without zoom drive. Without this call the table's own setting holds.
    void follow_autofocus_word() { follow_af_ = true; }

    // Learning updates applied since the table was loaded.
    uint32_t learn_count() const;

    // What the learning tests made of the blocks processed (after priming).
    const LearningTally &learning_tally() const { return tally_; }

    // Ends the run: checks the learned curve the way the library's save
    // does and, only when it passes, has the library write the learned
    // table back into its image (with this run's count and a fresh
    // checksum). The session is finished afterwards.
    LearnVerdict learned_table();

    // After a passing learned_table: saves the library's table image to
    // `path` (through symbolic links) atomically with VORLSaveTable. Input
    // error when it cannot.
    void save_table(const std::string &path) const;

    // The library's parameter dump of the loaded table, on standard output.
    void print_table() const;

    // The learned curve's working copy (for words about a fault).
    const st_vorl &working_parameters() const;

    // The engine's workspace after the last block (gains, spectra), for inspection.
    const st_vorl_ws &workspace() const { return work().ws; }

private:
    VORLWorkArea &work();
    const VORLWorkArea &work() const;

    std::string table_name_;
    ScratchFile table_copy_;         // the library reads its table by path
    std::vector<uint64_t> storage_;  // 8-byte aligned work area
    VORLResource res_{};
    bool follow_af_ = false;
    DriveOnsetDelay onset_;
    LearningTally tally_;
};

}  // namespace vorl
