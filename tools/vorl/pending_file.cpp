#include "pending_file.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <vector>

#include <dirent.h>
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

// Named temporaries are PREFIX + PID + "-" + six characters. One whose
// process no longer exists, owned by this user, is left over from a killed
// run of this tool: remove it.
void remove_stale(const std::string &dir, const std::string &prefix) {
    DIR *d = opendir(dir.c_str());
    if (d == nullptr) return;
    while (const dirent *e = readdir(d)) {
        const std::string name = e->d_name;
        if (name.compare(0, prefix.size(), prefix) != 0) continue;
        const std::string rest = name.substr(prefix.size());
        const auto dash = rest.find('-');
        if (dash == 0 || dash == std::string::npos || rest.size() != dash + 7 ||
            rest.find_first_not_of("0123456789") != dash)
            continue;
        const long pid = std::strtol(rest.c_str(), nullptr, 10);
        struct stat st;
        const std::string path = dir + "/" + name;
        if (pid > 0 && pid != getpid() && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH &&
            lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == geteuid())
            unlink(path.c_str());
    }
    closedir(d);
}

// A named temporary PREFIX + PID + "-XXXXXX" in `dir`, after clearing
// stale ones; -1 with errno on failure.
int make_named_temp(const std::string &dir, const std::string &prefix, std::string &path) {
    remove_stale(dir, prefix);
    path = dir + "/" + prefix + std::to_string(getpid()) + "-XXXXXX";
    return mkostemp(path.data(), O_CLOEXEC);
}

// An unnamed file in `dir` that /proc can reopen, or -1.
int open_unnamed(const std::string &dir, mode_t mode) {
#ifdef O_TMPFILE
    const int fd = open(dir.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, mode);
    if (fd < 0) return -1;
    if (access(("/proc/self/fd/" + std::to_string(fd)).c_str(), R_OK | W_OK) == 0) return fd;
    close(fd);
#else
    (void)dir, (void)mode;
#endif
    return -1;
}

}  // namespace

std::string resolve_links(const std::string &path) {
    std::string p = path;
    for (int depth = 0; depth < 40; ++depth) {
        struct stat st;
        if (lstat(p.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return p;
        char buf[4096];
        const ssize_t n = readlink(p.c_str(), buf, sizeof buf);
        if (n <= 0 || n == static_cast<ssize_t>(sizeof buf)) return p;
        const std::string to(buf, static_cast<std::size_t>(n));
        p = to[0] == '/' ? to : folder_of(p) + "/" + to;
    }
    cli::input_error(path + ": too many levels of symbolic links");
}

PendingFile::PendingFile(std::string destination)
    : destination_(std::move(destination)), target_(resolve_links(destination_)) {
    struct stat st;
    const bool exists = stat(target_.c_str(), &st) == 0;
    if (exists && S_ISDIR(st.st_mode)) cli::input_error(destination_ + ": is a folder, not a file name");
    const std::string dir = folder_of(target_);
    fd_ = open_unnamed(dir, 0666);
    if (fd_ < 0) {
        fd_ = make_named_temp(dir, "." + name_of(target_) + ".vorl-", temp_);
        if (fd_ < 0)
            cli::input_error(destination_ + ": cannot create a file in " + dir + ": " + std::strerror(errno));
        slot_ = claim_slot(temp_);
        const mode_t mask = umask(0);  // mkstemp makes the file private
        umask(mask);
        fchmod(fd_, 0666 & ~mask);
    }
    if (exists) {  // the replaced file's permissions and, where allowed, owner
        fchmod(fd_, st.st_mode & 07777);
        if (fchown(fd_, st.st_uid, st.st_gid) != 0) { /* not ours to give away: keep ours */ }
    }
}

PendingFile::~PendingFile() { discard(); }

int PendingFile::duplicate_fd() const { return fcntl(fd_, F_DUPFD_CLOEXEC, 0); }

void PendingFile::write_all(const void *data, std::size_t size) {
    if (!write_fully(fd_, data, size)) cli::input_error(destination_ + ": write failed: " + std::strerror(errno));
}

void PendingFile::start_writeback() {
    sync_file_range(fd_, 0, 0, SYNC_FILE_RANGE_WRITE);  // a hint: commit's fsync reports errors
}

void PendingFile::commit() {
    if (fsync(fd_) != 0 && errno != EINVAL)
        cli::input_error(destination_ + ": cannot flush to disk: " + std::strerror(errno));
    if (temp_.empty()) {
        // Name the finished file (rename cannot take an unnamed one): a
        // fresh hidden name, then the rename below puts it in place.
        const std::string dir = folder_of(target_), prefix = "." + name_of(target_) + ".vorl-";
        const std::string proc = "/proc/self/fd/" + std::to_string(fd_);
        for (int attempt = 0; temp_.empty(); ++attempt) {
            std::string name;
            const int probe = make_named_temp(dir, prefix, name);  // reserves a unique name
            if (probe < 0)
                cli::input_error(destination_ + ": cannot name the finished file: " + std::strerror(errno));
            close(probe);
            unlink(name.c_str());
            if (linkat(AT_FDCWD, proc.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
                temp_ = name;
                slot_ = claim_slot(temp_);
            } else if (errno != EEXIST || attempt > 8) {
                cli::input_error(destination_ + ": cannot name the finished file: " + std::strerror(errno));
            }
        }
    }
    close(fd_);
    fd_ = -1;
    if (std::rename(temp_.c_str(), target_.c_str()) != 0)
        cli::input_error(destination_ + ": cannot move the finished file into place: " + std::strerror(errno));
    release_slot(slot_);
    done_ = true;
}

void PendingFile::discard() {
    if (done_) return;
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
    if (!temp_.empty()) unlink(temp_.c_str());
    release_slot(slot_);
    done_ = true;
}

std::vector<cli::OptionDef> with_overwrite_options(std::vector<cli::OptionDef> own) {
    own.push_back({"overwrite", false, 'y'});
    own.push_back({"no-overwrite", false, 'n'});
    return own;
}

Replace replace_policy(const cli::ParsedArgs &args) {
    if (args.has("overwrite") && args.has("no-overwrite")) cli::usage_error("-y and -n contradict each other");
    return args.has("overwrite") ? Replace::Always : args.has("no-overwrite") ? Replace::Never : Replace::Ask;
}

void check_replace(const std::string &path, Replace policy) {
    struct stat st;
    if (path == "-" || stat(path.c_str(), &st) != 0) return;
    // A device or folder is never replaced by a file, whatever -y says.
    if (S_ISDIR(st.st_mode))
        cli::usage_error(path + ": is a folder; name the file to write in it (" +
                         (path.back() == '/' ? path : path + "/") + "NAME)");
    if (!S_ISREG(st.st_mode))
        cli::usage_error(path + ": exists and is not a regular file; write to \"-\" and redirect instead");
    if (policy == Replace::Always) return;
    if (policy == Replace::Never) cli::usage_error(path + ": exists, not replaced (-n)");
    if (isatty(STDIN_FILENO) && isatty(STDERR_FILENO)) {
        std::fprintf(stderr, "vorl: %s exists; replace it? [y/N] ", path.c_str());
        std::fflush(stderr);
        char answer[16] = "";
        if (std::fgets(answer, sizeof answer, stdin) != nullptr && (answer[0] == 'y' || answer[0] == 'Y')) return;
        cli::usage_error(path + ": exists, not replaced");
    }
    cli::usage_error(path + ": exists; -y (--overwrite) replaces it");
}

ScratchFile::ScratchFile() {
    const std::string dir = system_temp_dir();
    fd_ = open_unnamed(dir, 0600);
    if (fd_ >= 0) {
        path_ = "/proc/self/fd/" + std::to_string(fd_);
    } else {
        fd_ = make_named_temp(dir, "vorl-scratch-", named_);
        if (fd_ < 0) cli::input_error(dir + ": cannot create a working file: " + std::strerror(errno));
        path_ = named_;
        slot_ = claim_slot(named_);
    }
}

ScratchFile::ScratchFile(const void *data, std::size_t size) : ScratchFile() { append(data, size); }

ScratchFile::~ScratchFile() {
    if (!named_.empty()) unlink(named_.c_str());
    release_slot(slot_);
    if (fd_ >= 0) close(fd_);
}

void ScratchFile::append(const void *data, std::size_t size) {
    if (!write_fully(fd_, data, size))
        cli::input_error(system_temp_dir() + ": cannot write a working file: " + std::strerror(errno));
}

void ScratchFile::append_all_from(int fd, const std::string &what) {
    std::vector<char> buf(1 << 16);
    while (true) {
        const ssize_t n = read(fd, buf.data(), buf.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) cli::input_error(what + ": read failed: " + std::strerror(errno));
        if (n == 0) return;
        append(buf.data(), static_cast<std::size_t>(n));
    }
}

void ScratchFile::copy_to(int fd, const std::string &what) const {
    std::vector<char> buf(1 << 16);
    for (off_t at = 0;;) {
        const ssize_t n = pread(fd_, buf.data(), buf.size(), at);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) cli::input_error(what + ": cannot read back the output: " + std::strerror(errno));
        if (n == 0) return;
        at += n;
        if (!write_fully(fd, buf.data(), static_cast<std::size_t>(n)))
            cli::input_error(what + ": write failed: " + std::strerror(errno));
    }
}

bool write_fully(int fd, const void *data, std::size_t size) {
    const auto *p = static_cast<const char *>(data);
    while (size > 0) {
        const ssize_t n = write(fd, p, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = EIO;
            return false;
        }
        p += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

bool read_fully(int fd, void *data, std::size_t size) {
    auto *p = static_cast<char *>(data);
    while (size > 0) {
        const ssize_t n = read(fd, p, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

std::string system_temp_dir() {
    const char *dir = std::getenv("TMPDIR");
    return dir != nullptr && *dir != '\0' ? dir : "/tmp";
}

bool same_file(const std::string &a, const std::string &b) {
    struct stat sa, sb;
    if ((a == "-" ? fstat(STDIN_FILENO, &sa) : stat(a.c_str(), &sa)) != 0 || stat(b.c_str(), &sb) != 0) return false;
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

bool writes_over(const std::string &output, const std::string &input) {
    return output != "-" && !input.empty() && (output == input || same_file(input, output));
}

bool same_output(const std::string &a, const std::string &b) {
    return !a.empty() && (a == b || (a != "-" && b != "-" && same_file(a, b)));
}

void write_output(const std::string &path, const void *data, std::size_t size) {
    if (path == "-") {
        std::fflush(stdout);  // after anything already printed there
        if (!write_fully(STDOUT_FILENO, data, size))
            cli::input_error(std::string("standard output: write failed: ") + std::strerror(errno));
        return;
    }
    PendingFile file(path);
    file.write_all(data, size);
    file.commit();
}

bool file_exists(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

std::string read_file(const std::string &path, const std::string &what, std::size_t limit) {
    struct stat st;
    if (path != "-" && stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        cli::input_error(path + ": is a folder, not a " + what);
    std::ifstream file;
    if (path != "-") {
        file.open(path, std::ios::binary);
        if (!file) cli::input_error(path + ": cannot open " + what + ": " + std::strerror(errno));
    }
    std::istream &in = path == "-" ? std::cin : file;
    const std::string name = cli::input_name(path);
    // Read at most one byte past the limit, so a device or a runaway pipe
    // cannot fill memory.
    std::string bytes;
    char chunk[1 << 16];
    while (bytes.size() <= limit && in.read(chunk, sizeof chunk).gcount() > 0)
        bytes.append(chunk, static_cast<std::size_t>(in.gcount()));
    if (in.bad()) cli::input_error(name + ": cannot read " + what);
    if (bytes.size() > limit)
        cli::input_error(name + ": more than " + std::to_string(limit) + " bytes, too large for a " + what);
    return bytes;
}

}  // namespace vorl
