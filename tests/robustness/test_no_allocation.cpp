// The library allocates nothing. Every allocation of the process is counted
// while a library call runs, through the whole host sequence, the dump, the
// check's diagnostics and the DC-cut. VORLPreProcess and VORLPostProcess
// open the table file with fopen, and the C library allocates the FILE and
// its buffer: those two calls are held to exactly what the same fopen,
// fread or fwrite and fclose allocate when the test makes them itself.
//
// Counting: a plain glibc build interposes malloc and its relatives (the
// C++ runtime's operator new allocates through malloc); under a sanitizer,
// which owns the allocator, its allocation hooks count instead.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "testkit.h"

namespace {

std::atomic<bool> g_counting{false};
std::atomic<long> g_events{0};

void note() {
    if (g_counting.load(std::memory_order_relaxed)) g_events.fetch_add(1, std::memory_order_relaxed);
}

template <typename F>
long allocations_in(F &&f) {
    g_events = 0;
    g_counting = true;
    f();
    g_counting = false;
    return g_events;
}

}  // namespace

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VORL_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(VORL_SANITIZED)
#include <sanitizer/allocator_interface.h>
namespace {
void on_malloc(const volatile void *, size_t) { note(); }
void on_free(const volatile void *) { note(); }
const bool g_can_count = __sanitizer_install_malloc_and_free_hooks(on_malloc, on_free) != 0;
}  // namespace
#elif defined(__GLIBC__)
extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void *__libc_memalign(size_t, size_t);
void __libc_free(void *);
void *malloc(size_t n) { return note(), __libc_malloc(n); }
void *calloc(size_t n, size_t size) { return note(), __libc_calloc(n, size); }
void *realloc(void *p, size_t n) { return note(), __libc_realloc(p, n); }
void *aligned_alloc(size_t alignment, size_t n) { return note(), __libc_memalign(alignment, n); }
void *memalign(size_t alignment, size_t n) { return note(), __libc_memalign(alignment, n); }
void free(void *p) {
    if (p != nullptr) note();
    __libc_free(p);
}
}
namespace {
const bool g_can_count = true;
}
#else
namespace {
const bool g_can_count = false;
}
#endif

namespace {

// What the C library itself allocates to read or write the table file.
long stdio_cost(const std::string &path, const char *mode) {
    static st_vorl_tbl image;
    return allocations_in([&] {
        std::FILE *f = std::fopen(path.c_str(), mode);
        if (f == nullptr) return;
        if (mode[0] == 'r')
            (void)!std::fread(&image, sizeof image, 1, f);
        else
            std::fwrite(&image, sizeof image, 1, f);
        std::fclose(f);
    });
}

TEST(NoAllocation, TheCounterSeesAllocations) {
    if (!g_can_count) GTEST_SKIP() << "no way to count allocations here";
    static void *volatile sink;
    EXPECT_EQ(allocations_in([] { sink = std::malloc(24), std::free(sink); }), 2);
    EXPECT_GE(allocations_in([] { std::vector<double> v(100); sink = v.data(); }), 2);
}

TEST(NoAllocation, NoLibraryCallAllocates) {
    if (!g_can_count) GTEST_SKIP() << "no way to count allocations here";
    const vorl::testkit::Recording rec = vorl::testkit::synthetic_recording(300, 5);
    vorl::testkit::Host host(vorl::testkit::learning_table());
    const std::string &path = host.table_file.path();
    stdio_cost(path, "rb");  // the first use may set stdio up
    const long read_cost = stdio_cost(path, "rb"), write_cost = stdio_cost(path, "wb");
    vorl::testkit::write_table(path, vorl::testkit::learning_table());

    EXPECT_EQ(allocations_in([&] { VORLGetResourceSize(&host.res), VORLInitialize(&host.res); }), 0);
    EXPECT_EQ(allocations_in([&] { ASSERT_EQ(host.pre_process(), 0); }), read_cost);
    host.work().pulse_proc_flag = 1;
    long block_allocations = 0;
    for (size_t b = 0; b < rec.blocks(); ++b) {
        int16_t out[512];
        VORLSetDriveState(&host.res, b % 97 == 3 ? 7 : rec.zoom[b], 0, rec.wind[b]);
        block_allocations += allocations_in([&] { host.block(&rec.interleaved[b * 512], out); });
    }
    EXPECT_EQ(block_allocations, 0);

    std::fflush(stdout);  // stdout's buffer exists: the test framework has printed
    testing::internal::CaptureStdout();
    EXPECT_EQ(allocations_in([&] { sound_vorl_print_tbl(&host.work().inst); }), 0);
    testing::internal::GetCapturedStdout();
    host.ws().st_vorl_work.zspec_comp_coef_f_LR_d_max[0][9] = -1.0f;  // the check writes diagnostics
    testing::internal::CaptureStderr();
    EXPECT_EQ(allocations_in([&] { sound_vorl_check_tbl(&host.work().inst); }), 0);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(allocations_in([&] { VORLPostProcess(&host.res); }), write_cost);

    std::vector<int16_t> samples(8192, 12345);
    VORLDcCutState state;
    EXPECT_EQ(allocations_in([&] { VORLDcCutInit(&state), VORLDcCutProc(samples.data(), &state, 4096); }), 0);
}

}  // namespace
