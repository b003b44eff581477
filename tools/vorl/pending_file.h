// Output files: written where nobody sees them and moved over their
// destination only when complete, so a failed, interrupted or killed run
// never leaves a partial file and never touches what was there before;
// and the rule about replacing an existing file (-y, -n).
#pragma once

#include <string>
#include <vector>

#include "cli.h"

namespace vorl {

class PendingFile {
public:
    // Starts the output for `destination`; when that is a symbolic link,
    // for the file it points to (the link stays). The file has no name
    // until commit() where the file system allows (O_TMPFILE); elsewhere
    // it is a hidden temporary beside the destination, and hidden
    // temporaries of earlier runs that were killed (their process is gone)
    // are removed first. Input error if the folder cannot take it.
    explicit PendingFile(std::string destination);
    ~PendingFile();  // drops the output unless committed
    PendingFile(const PendingFile &) = delete;
    PendingFile &operator=(const PendingFile &) = delete;

    const std::string &destination() const { return destination_; }
    // A descriptor of the output for someone who will close it (libsndfile).
    int duplicate_fd() const;

    void write_all(const void *data, std::size_t size);  // input error on failure
    // Starts writing what was written so far to disk, without waiting, so
    // that commit()'s flush finds little left to do.
    void start_writeback();
    // Flushes to disk and moves the output over the destination, with the
    // replaced file's permissions (and owner, where allowed).
    void commit();
    void discard();

private:
    std::string destination_, target_, temp_;
    int fd_ = -1;
    int slot_ = -1;  // place in the interrupt clean-up list
    bool done_ = false;
};

// Replacing an existing output: as ffmpeg, -y/--overwrite replaces,
// -n/--no-overwrite never does, and otherwise the user is asked when both
// standard input and standard error are a terminal, else refused.
enum class Replace { Ask, Always, Never };
std::vector<cli::OptionDef> with_overwrite_options(std::vector<cli::OptionDef> own);
Replace replace_policy(const cli::ParsedArgs &args);
// Usage error when `path` exists and may not be replaced.
void check_replace(const std::string &path, Replace policy);

// A private working file that a library reads by path (the
// tuning table's copy), gone when the run ends. Where the file system can
// (O_TMPFILE), it never has a name, so even a killed run leaves nothing.
class ScratchFile {
public:
    ScratchFile();  // empty, in the temporary folder
    // Holding `size` bytes of `data`.
    ScratchFile(const void *data, std::size_t size);
    ~ScratchFile();
    ScratchFile(const ScratchFile &) = delete;
    ScratchFile &operator=(const ScratchFile &) = delete;

    const std::string &path() const { return path_; }
    int fd() const { return fd_; }
    void append(const void *data, std::size_t size);
    // Appends everything that can be read from `fd` (a pipe) until its end;
    // `what` names the source in errors.
    void append_all_from(int fd, const std::string &what);
    // Copies the whole file to `fd`; `what` names the destination in errors.
    void copy_to(int fd, const std::string &what) const;

private:
    int fd_ = -1;
    std::string path_;   // what the library opens
    std::string named_;  // the named fallback's path, "" when unnamed
    int slot_ = -1;
};

// All `size` bytes through write(2) or read(2), retrying after signals;
// false on an error, and for reading on an end before `size` bytes.
bool write_fully(int fd, const void *data, std::size_t size);
bool read_fully(int fd, void *data, std::size_t size);

// The folder for private working copies: $TMPDIR, else /tmp.
std::string system_temp_dir();

// True when both paths name one existing file (same device and inode), so
// that a different spelling of a path cannot sneak past a comparison. "-"
// as `a` stands for what standard input reads.
bool same_file(const std::string &a, const std::string &b);

// Whether writing `output` would write over `input`: the same name or the
// same file. Standard output ("-") writes over nothing; an input "-" is
// whatever standard input reads.
bool writes_over(const std::string &output, const std::string &input);
// Whether two outputs land in one place: both standard output, or one file.
bool same_output(const std::string &a, const std::string &b);

// A whole output at once: "-" to standard output, else a PendingFile
// written and committed. Input error naming the destination on failure.
void write_output(const std::string &path, const void *data, std::size_t size);

bool file_exists(const std::string &path);

// The file a path finally names, following symbolic links (the last one
// may dangle: writing it then creates its target).
std::string resolve_links(const std::string &path);

// Whole-file read, "-" reading standard input to its end; input error
// naming the file on failure or past `limit` bytes.
std::string read_file(const std::string &path, const std::string &what, std::size_t limit = std::size_t{1} << 30);

}  // namespace vorl
