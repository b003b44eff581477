// Outputs are written to a temporary file beside their destination and
// renamed over it only when complete, so a failed or interrupted run never
// leaves a partial file and never touches what was there before.
#pragma once

#include <string>

namespace vorl {

class PendingFile {
public:
    // Creates an empty temporary file in the destination's folder
    // (input error if the folder cannot take it).
    explicit PendingFile(std::string destination);
    ~PendingFile();  // removes the temporary file unless committed
    PendingFile(const PendingFile &) = delete;
    PendingFile &operator=(const PendingFile &) = delete;

    const std::string &temp_path() const { return temp_; }
    const std::string &destination() const { return destination_; }
    int fd() const { return fd_; }
    // Hands the descriptor to someone who will close it (e.g. libsndfile).
    int release_fd();

    void write_all(const void *data, std::size_t size);  // input error on failure
    // Flushes to disk and renames the temporary file over the destination.
    void commit();
    void discard();

private:
    std::string destination_, temp_;
    int fd_ = -1;
    int slot_ = -1;  // place in the interrupt clean-up list
    bool done_ = false;
};

// A private working file that a library reads by path (the
// tuning table's copy), gone when the run ends. Where the file system can
// (O_TMPFILE), it never has a name, so even a killed run leaves nothing.
class ScratchFile {
public:
    // Creates it in the temporary folder holding `size` bytes of `data`.
    ScratchFile(const void *data, std::size_t size);
    ~ScratchFile();
    ScratchFile(const ScratchFile &) = delete;
    ScratchFile &operator=(const ScratchFile &) = delete;

    const std::string &path() const { return path_; }

private:
    int fd_ = -1;
    std::string path_;   // what the library opens
    std::string named_;  // the named fallback's path, "" when unnamed
    int slot_ = -1;
};

// The folder for private working copies: $TMPDIR, else /tmp.
std::string system_temp_dir();

// True when both paths name one existing file (same device and inode), so
// that a different spelling of a path cannot sneak past a comparison.
bool same_file(const std::string &a, const std::string &b);

bool file_exists(const std::string &path);

// Whole-file read; input error naming the file on failure.
std::string read_file(const std::string &path, const std::string &what);

}  // namespace vorl
