// Reading ahead and writing behind on threads of their own, so that reading,
// decoding, encoding and writing files overlap the noise reducer's work
// instead of adding to it. Both wrap another reader or writer and keep its
// results: the same frames in the same order, the same errors at the same
// place in the stream (an error of the background thread is thrown by the
// next call that reaches it).
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <type_traits>
#include <vector>

#include "sample_stream.h"

namespace vorl {

// Frames per file read and write that suit both: 0.34 s at 48 kHz, 64 KiB
// of 16-bit stereo.
constexpr std::size_t kFileChunkFrames = 16384;

// Frames of one read or write, as 16-bit samples or as floats.
struct SampleChunk {
    std::vector<int16_t> s16;
    std::vector<float> f32;
    std::size_t frames = 0;
    bool is_float = false;

    template <typename T>
    std::vector<T> &samples() {
        if constexpr (std::is_same<T, float>::value)
            return f32;
        else
            return s16;
    }
};

// A bounded hand-over of chunks between the engine's thread and an I/O
// thread, with the chunks' memory recycled. Waking a sleeping thread from
// another processor costs several microseconds (an interrupt between
// processors, dearer still in a virtual machine), as much as a block of the
// engine's work; so the engine's thread never wakes the I/O thread: that
// looks at the queue every `kPoll` and then does all there is to do. Only an
// engine thread that must wait (its queue is full, or empty) is woken.
class ChunkQueue {
public:
    enum class Side { Producer, Consumer };
    static constexpr std::chrono::microseconds kPoll{200};

    // `io`: the side the I/O thread takes.
    ChunkQueue(std::size_t depth, Side io) : depth_(depth), io_(io) {}

    // A chunk to fill, once fewer than `depth` are waiting; false when stopped.
    bool take_empty(SampleChunk &chunk);
    void put_full(SampleChunk &&chunk);
    // The oldest full chunk; false when there is none and there will be none
    // (closed, or stopped).
    bool take_full(SampleChunk &chunk);
    void recycle(SampleChunk &&chunk);

    void close();                     // the producer has put its last chunk
    void stop();                      // nothing more will be taken or put
    void fail(std::exception_ptr e);  // the producer's error, then close
    std::exception_ptr failure();

private:
    // Waits on `side`'s behalf until `ready`.
    template <typename Ready>
    void wait(std::unique_lock<std::mutex> &lock, Side side, Ready ready);
    void wake_all();

    std::mutex mutex_;
    std::condition_variable engine_wakes_;
    bool engine_waits_ = false;
    std::deque<SampleChunk> full_;
    std::vector<SampleChunk> empty_;
    std::size_t depth_;
    Side io_;
    bool closed_ = false, stopped_ = false;
    std::exception_ptr failure_;
};

// Reads `in` ahead, `frames_per_read` frames at a time, in whichever sample
// type the first read() asks for (the other type is then refused). What
// depends on the whole input (clipped(), not_numbers(), premature_end()) is final once a
// read has returned 0.
class ReadAhead : public SampleReader {
public:
    ReadAhead(SampleReader &in, std::size_t frames_per_read);
    ~ReadAhead() override;
    ReadAhead(const ReadAhead &) = delete;
    ReadAhead &operator=(const ReadAhead &) = delete;

    const std::string &name() const override { return in_.name(); }
    int sample_rate() const override { return in_.sample_rate(); }
    int64_t frames() const override { return in_.frames(); }
    int64_t frames_read() const override { return frames_read_; }  // frames handed out
    void require_stereo() const override { in_.require_stereo(); }
    std::size_t read(int16_t *out, std::size_t n) override;
    std::size_t read(float *out, std::size_t n) override;
    // As read(), without the copy: `frames` points at up to `n` frames in
    // the read-ahead buffer, valid until the next call.
    std::size_t read_in_place(const int16_t *&frames, std::size_t n);
    uint64_t clipped() const override { return ended_ ? in_.clipped() : 0; }
    uint64_t not_numbers() const override { return ended_ ? in_.not_numbers() : 0; }
    std::string premature_end() const override { return ended_ ? in_.premature_end() : ""; }

private:
    void start(bool as_float);
    void produce();
    bool next_chunk();  // false at the end
    template <typename T>
    std::size_t take(const T *&frames, std::size_t n);  // read_in_place for either type
    template <typename T>
    std::size_t copy_out(T *out, std::size_t n);

    SampleReader &in_;
    std::size_t per_read_;
    ChunkQueue queue_{6, ChunkQueue::Side::Producer};
    std::thread worker_;
    SampleChunk current_;
    std::size_t used_ = 0;  // frames of current_ handed out
    bool started_ = false, as_float_ = false, ended_ = false;
    int64_t frames_read_ = 0;
};

// Writes to `out` behind the caller, copies of its writes gathered into
// writes of about `frames_per_write` frames (each hand-over wakes the other
// thread, which costs more than copying them). commit() waits for the writes,
// then commits `out`; without commit() nothing more is written and `out`
// is left uncommitted.
class WriteBehind : public SampleWriter {
public:
    WriteBehind(SampleWriter &out, std::size_t frames_per_write);
    ~WriteBehind() override;
    WriteBehind(const WriteBehind &) = delete;
    WriteBehind &operator=(const WriteBehind &) = delete;

    void write(const int16_t *interleaved, std::size_t frames) override;
    void write(const float *interleaved, std::size_t frames) override;
    void commit() override;

private:
    template <typename T>
    void put(const T *interleaved, std::size_t frames);
    void hand_over();
    void consume();
    void finish_worker();  // rethrows the worker's error

    SampleWriter &out_;
    std::size_t per_write_;
    SampleChunk gathering_;
    ChunkQueue queue_{6, ChunkQueue::Side::Consumer};
    std::thread worker_;
};

}  // namespace vorl
