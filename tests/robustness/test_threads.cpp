// Instances in separate work areas on separate threads compute exactly what
// a lone instance computes. The recording makes every instance learn and
// store the shared diagnostic dval while the others do; under
// ThreadSanitizer this also proves those stores race-free.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "testkit.h"

namespace {

struct Result {
    std::vector<int16_t> output;
    std::vector<unsigned char> table;  // the file after VORLPostProcess
    uint32_t learn_cnt;
};

Result run_one(const vorl::testkit::Recording &rec) {
    vorl::testkit::Host host(vorl::testkit::learning_table());
    EXPECT_EQ(host.pre_process(), 0);
    host.work().pulse_proc_flag = 1;
    Result r{host.run(rec.interleaved, rec.zoom, rec.wind), {}, sound_vorl_info_get(&host.work().inst)};
    VORLPostProcess(&host.res);
    r.table = vorl::testkit::read_file(host.table_file.path());
    return r;
}

TEST(ParallelInstances, EachThreadMatchesALoneInstanceBitForBit) {
    constexpr int kThreads = 4;
    const vorl::testkit::Recording rec = vorl::testkit::synthetic_recording(600, 1);
    const Result alone = run_one(rec);
    ASSERT_GT(alone.learn_cnt, 0u) << "the recording no longer reaches the learning step";

    std::vector<Result> results(kThreads);
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            ready.fetch_add(1);  // start together so that the instances overlap
            while (ready.load() < kThreads) std::this_thread::yield();
            results[t] = run_one(rec);
        });
    }
    for (std::thread &th : threads) th.join();
    for (const Result &r : results) {
        EXPECT_TRUE(r.output == alone.output);
        EXPECT_TRUE(r.table == alone.table);
        EXPECT_EQ(r.learn_cnt, alone.learn_cnt);
    }
}

}  // namespace
