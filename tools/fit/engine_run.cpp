#include "engine_run.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "drive_onset.h"
#include "fit_error.h"

namespace vorl::fit {

namespace {

// The library reads its table by path: a private file that lives only
// until the table is loaded.
class LoadedTable {
public:
    explicit LoadedTable(const st_vorl_tbl &t) {
        const char *dir = std::getenv("TMPDIR");
        path_ = std::string(dir && *dir ? dir : "/tmp") + "/vorl-fit-XXXXXX";
        const int fd = mkstemp(path_.data());
        if (fd < 0) throw FitError("cannot create a temporary table file in " + path_);
        const bool ok = write(fd, &t, sizeof t) == static_cast<ssize_t>(sizeof t);
        close(fd);
        if (!ok) {
            unlink(path_.c_str());
            throw FitError("cannot write a temporary table file " + path_);
        }
    }
    ~LoadedTable() { unlink(path_.c_str()); }
    LoadedTable(const LoadedTable &) = delete;
    LoadedTable &operator=(const LoadedTable &) = delete;
    const char *path() const { return path_.c_str(); }

private:
    std::string path_;
};

}  // namespace

EngineRun run_engine(const st_vorl_tbl &table, const int16_t *in, std::size_t frames,
                     const std::vector<BlockWords> &words) {
    std::vector<uint64_t> work((sizeof(VORLWorkArea) + 7) / 8);
    VORLResource res{};
    VORLGetResourceSize(&res);
    res.p_work = work.data();
    {
        const LoadedTable file(table);
        res.p_tbl_path = file.path();
        VORLGetResourceInfo(&res);
        VORLInitialize(&res);
        const int32_t status = VORLPreProcess(&res);
        if (status != VORL_OK) throw FitError("the library refused the table (status " + std::to_string(status) + ")");
    }
    bool follow_af = false;
    for (const BlockWords &w : words) follow_af = follow_af || w.af;

    EngineRun run;
    run.out.assign(2 * frames, 0);
    const std::size_t delay = VORL_DELAY_FRAMES;
    const std::size_t blocks = (frames + kBlock - 1) / kBlock + delay / kBlock;
    DriveOnsetDelay onset;  // as the tool hands drive words
    for (std::size_t b = 0; b < blocks; ++b) {
        const BlockWords w = b < words.size() ? words[b] : BlockWords{};
        hand_drive_words(&res, onset, DriveWords{w.zoom, w.af ? 1u : 0u, w.wind ? 1u : 0u}, follow_af);
        for (std::size_t i = 0; i < kBlock; ++i) {
            const std::size_t n = b * kBlock + i;
            res.p_in_ch0[i] = n < frames ? in[2 * n] : 0;
            res.p_in_ch1[i] = n < frames ? in[2 * n + 1] : 0;
        }
        run.tally.enter(&res);
        for (std::size_t i = 0; i < kBlock; ++i) {  // output frame n is input frame n - 768
            const std::size_t n = b * kBlock + i;
            if (n >= delay && n - delay < frames) std::memcpy(&run.out[2 * (n - delay)], &res.p_out[2 * i], 4);
        }
    }
    const VORLWorkArea &w = *static_cast<const VORLWorkArea *>(res.p_work);
    run.learned = w.ws.st_vorl_work;
    run.updates = sound_vorl_info_get(&w.inst);
    return run;
}

}  // namespace vorl::fit
