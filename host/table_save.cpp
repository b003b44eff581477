// Atomic save of the table image: a temporary file beside the destination,
// written and flushed to disk, then renamed over it, so that a crash or a
// power loss leaves either the old table or the new one, never a torn one.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vorl.h"
#include "work_area.h"

namespace {

constexpr std::size_t kMaxPath = 4096;
constexpr int kNameAttempts = 100;

bool write_all(int fd, const unsigned char *p, std::size_t size) {
    while (size > 0) {
        const ssize_t n = write(fd, p, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

// Creates "<path>.tmp-<pid>-<n>" exclusively (so two savers never share
// one); the name goes to `temp`. -1 when no name is free or the folder
// refuses the file.
int create_temp(const char *path, char (&temp)[kMaxPath]) {
    for (int n = 0; n < kNameAttempts; ++n) {
        const int len = std::snprintf(temp, sizeof temp, "%s.tmp-%ld-%d", path, static_cast<long>(getpid()), n);
        if (len < 0 || static_cast<std::size_t>(len) >= sizeof temp) return -1;
        const int fd = open(temp, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0 || errno != EEXIST) return fd;
    }
    return -1;
}

// Makes the rename itself durable; a folder that cannot be opened or synced
// (some file systems) leaves the new file in place all the same.
void sync_folder(const char *path) {
    char folder[kMaxPath];
    const char *slash = std::strrchr(path, '/');
    if (slash == nullptr) {
        std::strcpy(folder, ".");
    } else {
        const std::size_t len = slash == path ? 1 : static_cast<std::size_t>(slash - path);
        std::memcpy(folder, path, len);
        folder[len] = '\0';
    }
    const int fd = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    (void)fsync(fd);
    close(fd);
}

}  // namespace

extern "C" {

int32_t VORLSaveTable(const VORLResource *res, const char *path) {
    if (res == nullptr || res->p_work == nullptr || path == nullptr) return VORL_ERR_NULL;
    if (std::strlen(path) >= kMaxPath) return VORL_ERR_TBL_WRITE;
    char temp[kMaxPath];
    const int fd = create_temp(path, temp);
    if (fd < 0) return VORL_ERR_TBL_WRITE;

    struct stat old;
    bool ok = stat(path, &old) != 0 || fchmod(fd, old.st_mode & 07777) == 0;  // keep the old file's mode
    ok = ok && write_all(fd, reinterpret_cast<const unsigned char *>(&vorl::work_area(res)->tbl), VORL_TBL_SIZE);
    ok = ok && fsync(fd) == 0;
    ok = close(fd) == 0 && ok;
    ok = ok && std::rename(temp, path) == 0;
    if (!ok) {
        const int reason = errno;
        unlink(temp);
        errno = reason;
        return VORL_ERR_TBL_WRITE;
    }
    sync_folder(path);
    return VORL_OK;
}

}  // extern "C"
