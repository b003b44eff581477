// Choice of the vector path, made once from the processor's features.
#include "simd_path.h"

#include <cstdlib>
#include <cstring>

namespace vorl::simd {

#if defined(__x86_64__)
extern const Kernels kSse2Kernels;
extern const Kernels kAvx2Kernels;
#elif defined(__aarch64__)
extern const Kernels kNeonKernels;
#endif

namespace {

const Path kAllPaths[] = {Path::kScalar, Path::kSse2, Path::kAvx2, Path::kNeon};

Path choose() {
    Path best = Path::kScalar;
    for (Path p : kAllPaths)
        if (path_available(p)) best = p;
    const char *wanted = std::getenv("VORL_SIMD");
    if (wanted != nullptr)
        for (Path p : kAllPaths)
            if (std::strcmp(wanted, path_name(p)) == 0 && path_available(p)) return p;
    return best;
}

}  // namespace

bool path_available(Path p) {
    switch (p) {
        case Path::kScalar: return true;
#if defined(__x86_64__)
        case Path::kSse2: return true;
        case Path::kAvx2: return __builtin_cpu_supports("avx2") != 0;
#elif defined(__aarch64__)
        case Path::kNeon: return true;
#endif
        default: return false;
    }
}

const Kernels *kernels(Path p) {
    if (!path_available(p)) return nullptr;
    switch (p) {
#if defined(__x86_64__)
        case Path::kSse2: return &kSse2Kernels;
        case Path::kAvx2: return &kAvx2Kernels;
#elif defined(__aarch64__)
        case Path::kNeon: return &kNeonKernels;
#endif
        default: return nullptr;
    }
}

Path active_path() {
    // Chosen once; threads that race here all choose the same. A plain
    // atomic, not a guarded static, keeps the library free of the C++ runtime.
    static int chosen = -1;
    int path = __atomic_load_n(&chosen, __ATOMIC_RELAXED);
    if (path < 0) {
        path = static_cast<int>(choose());
        __atomic_store_n(&chosen, path, __ATOMIC_RELAXED);
    }
    return static_cast<Path>(path);
}

const char *path_name(Path p) {
    switch (p) {
        case Path::kSse2: return "sse2";
        case Path::kAvx2: return "avx2";
        case Path::kNeon: return "neon";
        default: return "scalar";
    }
}

}  // namespace vorl::simd
