#include "pending_file.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli.h"

namespace vorl {

namespace {

// Temporary files still pending, for removal when the run is interrupted or
// exceeds the file-size limit; plain arrays because the signal handler may
// only call unlink.
constexpr int kSlots = 8;
char g_pending[kSlots][4096];
volatile std::sig_atomic_t g_used[kSlots];

extern "C" void remove_pending_and_exit(int sig) {
    for (int i = 0; i < kSlots; ++i)
        if (g_used[i]) unlink(g_pending[i]);
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}

void install_handlers_once() {
    static bool installed = false;
    if (installed) return;
    installed = true;
    for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ}) std::signal(sig, remove_pending_and_exit);
}

int claim_slot(const std::string &path) {
    install_handlers_once();
    if (path.size() >= sizeof g_pending[0]) return -1;
    for (int i = 0; i < kSlots; ++i)
        if (!g_used[i]) {
            std::memcpy(g_pending[i], path.c_str(), path.size() + 1);
            g_used[i] = 1;
            return i;
        }
    return -1;
}

void release_slot(int slot) {
    if (slot >= 0) g_used[slot] = 0;
}

std::string folder_of(const std::string &path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string name_of(const std::string &path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

PendingFile::PendingFile(std::string destination) : destination_(std::move(destination)) {
    struct stat st;
    if (stat(destination_.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        cli::input_error(destination_ + ": is a folder, not a file name");
    std::string pattern = folder_of(destination_) + "/." + name_of(destination_) + ".vorl-XXXXXX";
    fd_ = mkstemp(pattern.data());
    if (fd_ < 0)
        cli::input_error(destination_ + ": cannot create a file in " + folder_of(destination_) + ": " +
                         std::strerror(errno));
    temp_ = pattern;
    slot_ = claim_slot(temp_);
    // mkstemp makes the file private; give the output the usual permissions.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd_, 0666 & ~mask);
}

PendingFile::~PendingFile() { discard(); }

int PendingFile::release_fd() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
}

void PendingFile::write_all(const void *data, std::size_t size) {
    const auto *p = static_cast<const char *>(data);
    while (size > 0) {
        const ssize_t n = write(fd_, p, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) cli::input_error(destination_ + ": write failed: " + std::strerror(errno));
        p += n;
        size -= static_cast<std::size_t>(n);
    }
}

void PendingFile::commit() {
    if (fd_ >= 0) {
        if (fsync(fd_) != 0 && errno != EINVAL)
            cli::input_error(destination_ + ": cannot flush to disk: " + std::strerror(errno));
        close(fd_);
        fd_ = -1;
    }
    if (std::rename(temp_.c_str(), destination_.c_str()) != 0)
        cli::input_error(destination_ + ": cannot move the finished file into place: " + std::strerror(errno));
    release_slot(slot_);
    done_ = true;
}

void PendingFile::discard() {
    if (done_) return;
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
    unlink(temp_.c_str());
    release_slot(slot_);
    done_ = true;
}

ScratchFile::ScratchFile(const void *data, std::size_t size) {
    const std::string dir = system_temp_dir();
#ifdef O_TMPFILE
    fd_ = open(dir.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd_ >= 0) {
        path_ = "/proc/self/fd/" + std::to_string(fd_);
        if (access(path_.c_str(), R_OK | W_OK) != 0) {  // no /proc: take a name instead
            close(fd_);
            fd_ = -1;
        }
    }
#endif
    if (fd_ < 0) {
        std::string pattern = dir + "/vorl-table-XXXXXX";
        fd_ = mkstemp(pattern.data());
        if (fd_ < 0) cli::input_error(dir + ": cannot create a working file: " + std::strerror(errno));
        named_ = path_ = pattern;
        slot_ = claim_slot(named_);
    }
    const auto *p = static_cast<const char *>(data);
    for (std::size_t done = 0; done < size;) {
        const ssize_t n = pwrite(fd_, p + done, size - done, static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) cli::input_error(dir + ": cannot write a working file: " + std::strerror(errno));
        done += static_cast<std::size_t>(n);
    }
}

ScratchFile::~ScratchFile() {
    if (!named_.empty()) unlink(named_.c_str());
    release_slot(slot_);
    if (fd_ >= 0) close(fd_);
}

std::string system_temp_dir() {
    const char *dir = std::getenv("TMPDIR");
    return dir != nullptr && *dir != '\0' ? dir : "/tmp";
}

bool same_file(const std::string &a, const std::string &b) {
    struct stat sa, sb;
    if (stat(a.c_str(), &sa) != 0 || stat(b.c_str(), &sb) != 0) return false;
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

bool file_exists(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

std::string read_file(const std::string &path, const std::string &what) {
    struct stat st;
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) cli::input_error(path + ": is a folder, not " + what);
    std::ifstream in(path, std::ios::binary);
    if (!in) cli::input_error(path + ": cannot open " + what + ": " + std::strerror(errno));
    std::ostringstream buf;
    buf << in.rdbuf();
    if (in.bad()) cli::input_error(path + ": cannot read " + what);
    return buf.str();
}

}  // namespace vorl
