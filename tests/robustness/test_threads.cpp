// Instances in separate work areas on separate threads: each must compute
// exactly what a lone instance computes. The recording has zoom drives, so
// every instance runs its fit tests, learns new coefficients and stores the
// shared diagnostic dval while the others do; under ThreadSanitizer this
// test also proves those stores race-free.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "scenario.h"
#include "table_builder.h"
#include "vorl.h"

namespace {

using vorl::robustness::Instance;
using vorl::robustness::Recording;

constexpr int kThreads = 4;

struct Result {
    std::vector<int16_t> output;
    std::vector<unsigned char> table;  // the table file after VORLPostProcess
    uint32_t learn_cnt = 0;
};

Result run_one(const st_vorl_tbl &table, const Recording &rec) {
    Instance inst(table);
    Result r;
    r.output = inst.run(rec);
    r.table = vorl::robustness::read_bytes(inst.table_path());
    r.learn_cnt = sound_vorl_info_get(&inst.work().inst);
    return r;
}

uint32_t bits_of(float f) {
    uint32_t u;
    std::memcpy(&u, &f, sizeof u);
    return u;
}

TEST(ParallelInstances, EachThreadMatchesALoneInstanceBitForBit) {
    const st_vorl_tbl table = vorl::tablekit::reference_table();
    const Recording rec = vorl::robustness::make_recording(12345);

    const float sentinel = -12345.0f;
    dval = sentinel;
    const Result alone = run_one(table, rec);
    const uint32_t alone_dval = bits_of(dval);
    ASSERT_NE(alone_dval, bits_of(sentinel)) << "no fit test ran: the scenario does not reach learning";
    ASSERT_GT(alone.learn_cnt, 0u) << "the scenario no longer makes the learning step update";
    ASSERT_EQ(alone.table.size(), VORL_TBL_SIZE);

    dval = sentinel;
    std::vector<Result> results(kThreads);
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            // Start together so that the instances really overlap.
            ready.fetch_add(1);
            while (ready.load() < kThreads) std::this_thread::yield();
            results[t] = run_one(table, rec);
        });
    }
    for (std::thread &th : threads) th.join();

    for (int t = 0; t < kThreads; ++t) {
        SCOPED_TRACE(testing::Message() << "thread " << t);
        EXPECT_TRUE(results[t].output == alone.output);
        EXPECT_TRUE(results[t].table == alone.table);
        EXPECT_EQ(results[t].learn_cnt, alone.learn_cnt);
    }
    // Every thread's last store is its last fit test's ratio, the same in
    // all of them, so the value left behind is that ratio.
    EXPECT_EQ(bits_of(dval), alone_dval);
}

}  // namespace
