// The library allocates nothing: every allocation function of the process is
// counted while a library call runs, through the whole host sequence, the
// engine's set-up, the dump, the table check's diagnostics and the DC-cut.
//
// What is excluded, and why: VORLPreProcess and VORLPostProcess open the
// table file with fopen, and the C library allocates the FILE and its
// buffer. Those two calls are held to exactly the allocations that the same
// fopen/fread/fclose (or fopen/fwrite/fclose) make when the test calls them
// itself, so that the library's own part must add none; the steps of
// VORLPreProcess after the read are also run on their own and must count 0.
// Standard output already has its buffer (the test framework has printed)
// before the dump is measured; standard error is unbuffered.
//
// Counting: in a plain build the test program defines malloc, calloc,
// realloc, free, the aligned forms and every operator new and delete, and
// forwards to the C library's internal entry points (glibc). Under a
// sanitizer, which owns the allocator, its allocation hooks count instead.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

#include "scenario.h"
#include "table_builder.h"
#include "vorl.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define VORL_SANITIZER_ALLOCATOR 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VORL_SANITIZER_ALLOCATOR 1
#endif

namespace {

std::atomic<bool> g_counting{false};
std::atomic<long> g_events{0};

inline void note_allocation_event() {
    if (g_counting.load(std::memory_order_relaxed)) g_events.fetch_add(1, std::memory_order_relaxed);
}

// Allocation and release events (of any thread) while f runs.
template <typename F>
long allocation_events(F &&f) {
    g_events.store(0);
    g_counting.store(true);
    f();
    g_counting.store(false);
    return g_events.load();
}

}  // namespace

#if defined(VORL_SANITIZER_ALLOCATOR)
#include <sanitizer/allocator_interface.h>
namespace {
void on_malloc(const volatile void *, size_t) { note_allocation_event(); }
void on_free(const volatile void *) { note_allocation_event(); }
const int g_hooks_installed = __sanitizer_install_malloc_and_free_hooks(on_malloc, on_free);
}  // namespace
#define VORL_COUNTING_AVAILABLE (g_hooks_installed != 0)
#elif defined(__GLIBC__)
extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void *__libc_memalign(size_t, size_t);
void __libc_free(void *);

void *malloc(size_t n) {
    note_allocation_event();
    return __libc_malloc(n);
}
void *calloc(size_t n, size_t size) {
    note_allocation_event();
    return __libc_calloc(n, size);
}
void *realloc(void *p, size_t n) {
    note_allocation_event();
    return __libc_realloc(p, n);
}
void free(void *p) {
    if (p != nullptr) note_allocation_event();
    __libc_free(p);
}
void *aligned_alloc(size_t alignment, size_t n) {
    note_allocation_event();
    return __libc_memalign(alignment, n);
}
void *memalign(size_t alignment, size_t n) {
    note_allocation_event();
    return __libc_memalign(alignment, n);
}
int posix_memalign(void **out, size_t alignment, size_t n) {
    note_allocation_event();
    void *p = __libc_memalign(alignment, n);
    if (p == nullptr) return ENOMEM;
    *out = p;
    return 0;
}
}  // extern "C"

namespace {
void *counted_new(size_t n, size_t alignment = 0) {
    note_allocation_event();
    void *p = alignment > alignof(std::max_align_t) ? __libc_memalign(alignment, n) : __libc_malloc(n ? n : 1);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}
void counted_delete(void *p) {
    if (p != nullptr) note_allocation_event();
    __libc_free(p);
}
}  // namespace

void *operator new(size_t n) { return counted_new(n); }
void *operator new[](size_t n) { return counted_new(n); }
void *operator new(size_t n, std::align_val_t a) { return counted_new(n, static_cast<size_t>(a)); }
void *operator new[](size_t n, std::align_val_t a) { return counted_new(n, static_cast<size_t>(a)); }
void *operator new(size_t n, const std::nothrow_t &) noexcept {
    note_allocation_event();
    return __libc_malloc(n ? n : 1);
}
void *operator new[](size_t n, const std::nothrow_t &) noexcept {
    note_allocation_event();
    return __libc_malloc(n ? n : 1);
}
void operator delete(void *p) noexcept { counted_delete(p); }
void operator delete[](void *p) noexcept { counted_delete(p); }
void operator delete(void *p, size_t) noexcept { counted_delete(p); }
void operator delete[](void *p, size_t) noexcept { counted_delete(p); }
void operator delete(void *p, std::align_val_t) noexcept { counted_delete(p); }
void operator delete[](void *p, std::align_val_t) noexcept { counted_delete(p); }
void operator delete(void *p, size_t, std::align_val_t) noexcept { counted_delete(p); }
void operator delete[](void *p, size_t, std::align_val_t) noexcept { counted_delete(p); }
void operator delete(void *p, const std::nothrow_t &) noexcept { counted_delete(p); }
void operator delete[](void *p, const std::nothrow_t &) noexcept { counted_delete(p); }
#define VORL_COUNTING_AVAILABLE true
#else
#define VORL_COUNTING_AVAILABLE false
#endif

namespace {

using vorl::robustness::Instance;
using vorl::robustness::Recording;
using vorl::tablekit::reference_table;

// Sends a standard stream to /dev/null for the object's lifetime (the
// redirection itself is made outside any measurement).
class Silence {
  public:
    explicit Silence(std::FILE *stream) : stream_(stream), fd_(fileno(stream)) {
        std::fflush(stream_);
        saved_ = dup(fd_);
        const int null_fd = open("/dev/null", O_WRONLY);
        dup2(null_fd, fd_);
        close(null_fd);
    }
    ~Silence() {
        std::fflush(stream_);
        dup2(saved_, fd_);
        close(saved_);
    }

  private:
    std::FILE *stream_;
    int fd_, saved_ = -1;
};

// What the C library itself allocates to read or write a table file.
long stdio_events_reading(const char *path) {
    static st_vorl_tbl image;
    return allocation_events([&] {
        std::FILE *f = std::fopen(path, "rb");
        if (f == nullptr) return;
        (void)!std::fread(&image, sizeof image, 1, f);
        std::fclose(f);
    });
}
long stdio_events_writing(const char *path) {
    static st_vorl_tbl image;
    return allocation_events([&] {
        std::FILE *f = std::fopen(path, "wb");
        if (f == nullptr) return;
        std::fwrite(&image, sizeof image, 1, f);
        std::fclose(f);
    });
}

class NoAllocation : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!VORL_COUNTING_AVAILABLE) GTEST_SKIP() << "no way to count allocations on this platform";
    }
};

// The probe must see what it is meant to see, or a count of 0 proves nothing.
TEST_F(NoAllocation, ProbeCountsEveryKindOfAllocation) {
    static void *volatile sink;
    EXPECT_EQ(allocation_events([] {}), 0);
    EXPECT_EQ(allocation_events([] {
                  sink = std::malloc(24);
                  std::free(sink);
              }),
              2);
    EXPECT_GE(allocation_events([] {  // a sanitizer's realloc counts as allocation and release
                  sink = std::calloc(3, 8);
                  sink = std::realloc(sink, 4096);
                  std::free(sink);
              }),
              3);
    EXPECT_GE(allocation_events([] {
                  int *p = new int[16];
                  sink = p;
                  delete[] p;
              }),
              2);
    EXPECT_GE(allocation_events([] {
                  std::vector<double> v(100);
                  sink = v.data();
              }),
              2);
    std::FILE *f = nullptr;
    EXPECT_GE(allocation_events([&] { f = std::fopen("/dev/null", "rb"); }), 1);
    if (f != nullptr) std::fclose(f);
}

// The whole host sequence, with the pulse filter on, drives in both
// directions, wind, an out-of-range drive code, clicks and clipping.
TEST_F(NoAllocation, HostSequenceAllocatesOnlyInsideTheTableFileStdio) {
    const Recording rec = vorl::robustness::make_recording(777);
    Instance inst(reference_table());
    VORLResource &res = inst.res;

    EXPECT_EQ(allocation_events([&] { VORLGetResourceSize(&res); }), 0);
    EXPECT_EQ(allocation_events([&] { VORLGetResourceInfo(&res); }), 0);
    EXPECT_EQ(allocation_events([&] { VORLInitialize(&res); }), 0);

    (void)stdio_events_reading(inst.table_path());  // first use may set stdio up
    const long read_cost = stdio_events_reading(inst.table_path());
    int32_t status = -1;
    EXPECT_EQ(allocation_events([&] { status = VORLPreProcess(&res); }), read_cost);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(allocation_events([&] { VORLPreProcess(&res); }), read_cost);  // a second load

    inst.work().pulse_proc_flag = 1;
    long block_events = 0;
    for (int b = 0; b < vorl::robustness::kBlocks; ++b) {
        inst.stage_block(rec, b);
        if (b >= 390 && b < 393) VORLSetDriveState(&res, 7, 1, 0);  // no valid drive code
        block_events += allocation_events([&] { VORLEnterLibrary(&res); });
    }
    EXPECT_EQ(block_events, 0);

    EXPECT_EQ(allocation_events([&] { sound_vorl_get_tbl_cnt_info(&inst.work().hdr); }), 0);
    EXPECT_EQ(allocation_events([&] { sound_vorl_info_get(&inst.work().inst); }), 0);

    (void)stdio_events_writing(inst.table_path());
    const long write_cost = stdio_events_writing(inst.table_path());
    EXPECT_EQ(allocation_events([&] { VORLPostProcess(&res); }), write_cost);
    EXPECT_EQ(allocation_events([&] { VORLPostProcess(&res); }), write_cost);
}

// VORLPreProcess's steps after the file read, one by one, with no file.
TEST_F(NoAllocation, EngineSetUpFromAnImage) {
    std::unique_ptr<VORLWorkArea> w(new VORLWorkArea());
    VORLResource res{};
    res.p_work = w.get();
    VORLInitialize(&res);
    w->tbl = reference_table();
    EXPECT_EQ(allocation_events([&] {
                  sound_vorl_comp_check_sum(&w->hdr);
                  sound_vorl_init(w.get());
                  sound_vorl_set(&w->hdr, &w->inst);
                  sound_vorl_variable_param_set(&w->hdr, &w->inst);
                  sound_CPulseFilter_init(&w->inst);
                  sound_vorl_check_tbl(&w->inst);
                  sound_vorl_write_back_tbl(&w->inst, &w->hdr);
                  sound_vorl_set_tbl_cnt_info(&w->inst, &w->hdr);
                  sound_vorl_calc_check_sum(&w->hdr);
              }),
              0);
}

TEST_F(NoAllocation, DumpAndCheckDiagnostics) {
    std::unique_ptr<VORLWorkArea> w(new VORLWorkArea());
    VORLResource res{};
    res.p_work = w.get();
    VORLInitialize(&res);
    w->tbl = reference_table();
    sound_vorl_init(w.get());
    sound_vorl_set(&w->hdr, &w->inst);
    {
        Silence quiet(stdout);
        std::fputs("warm-up\n", stdout);  // the stream's buffer exists before measuring
        std::fflush(stdout);
        EXPECT_EQ(allocation_events([&] { sound_vorl_print_tbl(&w->inst); }), 0);
    }
    // Every node of both channels out of bounds: the check writes a
    // diagnostic for each (single characters and formatted lines).
    st_vorl &learned = w->ws.st_vorl;
    for (int ch = 0; ch < 2; ++ch) {
        learned.zspec_comp_coef_f_LR_d[ch][0] = -1.0f;
        for (int b = 0; b < 72; ++b) learned.zspec_comp_coef_f_LR_d_max[ch][b] = -2.0f;
    }
    int32_t check = 0;
    {
        Silence quiet(stderr);
        EXPECT_EQ(allocation_events([&] { check = sound_vorl_check_tbl(&w->inst); }), 0);
    }
    EXPECT_EQ(check, -1);
}

TEST_F(NoAllocation, DcCut) {
    std::vector<int16_t> samples(2 * 4096);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<int16_t>(static_cast<int32_t>((i * 7919) % 65536) - 32768);
    VORLDcCutState state;
    EXPECT_EQ(allocation_events([&] {
                  VORLDcCutInit(&state);
                  VORLDcCutProc(samples.data(), &state, 4096);
                  VORLDcCutProc(samples.data(), &state, 0);
              }),
              0);
}

}  // namespace
