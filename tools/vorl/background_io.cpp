#include "background_io.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include <pthread.h>

namespace vorl {

template <typename Ready>
void ChunkQueue::wait(std::unique_lock<std::mutex> &lock, Side side, Ready ready) {
    if (ready()) return;
    if (side == io_) {
        while (!ready()) engine_wakes_.wait_for(lock, kPoll);  // nobody wakes it sooner but close and stop
        return;
    }
    engine_waits_ = true;
    engine_wakes_.wait(lock, ready);
    engine_waits_ = false;
}

bool ChunkQueue::take_empty(SampleChunk &chunk) {
    std::unique_lock<std::mutex> lock(mutex_);
    wait(lock, Side::Producer, [&] { return stopped_ || full_.size() < depth_; });
    if (stopped_) return false;
    if (!empty_.empty()) {
        chunk = std::move(empty_.back());
        empty_.pop_back();
    }
    return true;
}

void ChunkQueue::put_full(SampleChunk &&chunk) {
    std::unique_lock<std::mutex> lock(mutex_);
    full_.push_back(std::move(chunk));
    const bool wake = engine_waits_;  // the engine, as consumer, ran dry
    lock.unlock();
    if (wake) engine_wakes_.notify_all();
}

bool ChunkQueue::take_full(SampleChunk &chunk) {
    std::unique_lock<std::mutex> lock(mutex_);
    wait(lock, Side::Consumer, [&] { return stopped_ || closed_ || !full_.empty(); });
    if (stopped_ || full_.empty()) return false;
    chunk = std::move(full_.front());
    full_.pop_front();
    const bool wake = engine_waits_;  // the engine, as producer, had filled the queue
    lock.unlock();
    if (wake) engine_wakes_.notify_all();
    return true;
}

void ChunkQueue::recycle(SampleChunk &&chunk) {
    std::lock_guard<std::mutex> lock(mutex_);
    empty_.push_back(std::move(chunk));
}

void ChunkQueue::wake_all() { engine_wakes_.notify_all(); }

void ChunkQueue::close() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
    }
    wake_all();
}

void ChunkQueue::stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopped_ = true;
    }
    wake_all();
}

void ChunkQueue::fail(std::exception_ptr e) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        failure_ = std::move(e);
        closed_ = true;
    }
    wake_all();
}

std::exception_ptr ChunkQueue::failure() {
    std::lock_guard<std::mutex> lock(mutex_);
    return failure_;
}

// ---- ReadAhead

ReadAhead::ReadAhead(SampleReader &in, std::size_t frames_per_read) : in_(in), per_read_(frames_per_read) {}

ReadAhead::~ReadAhead() {
    queue_.stop();
    if (worker_.joinable()) worker_.join();
}

void ReadAhead::start(bool as_float) {
    if (started_) {
        if (as_float != as_float_) throw std::logic_error("ReadAhead: 16-bit and float reads mixed");
        return;
    }
    started_ = true;
    as_float_ = as_float;
    worker_ = std::thread([this] { produce(); });
}

void ReadAhead::produce() {
    pthread_setname_np(pthread_self(), "vorl-read");  // for top -H and profilers
    try {
        for (;;) {
            SampleChunk chunk;
            if (!queue_.take_empty(chunk)) return;
            chunk.is_float = as_float_;
            const auto fill = [&](auto &samples) {
                samples.resize(2 * per_read_);
                chunk.frames = in_.read(samples.data(), per_read_);
            };
            if (as_float_)
                fill(chunk.f32);
            else
                fill(chunk.s16);
            const bool end = chunk.frames == 0;
            queue_.put_full(std::move(chunk));
            if (end) return;
        }
    } catch (...) {
        queue_.fail(std::current_exception());
    }
}

bool ReadAhead::next_chunk() {
    if (ended_) return false;
    queue_.recycle(std::move(current_));
    used_ = 0;
    if (!queue_.take_full(current_) || current_.frames == 0) {
        current_ = SampleChunk{};
        worker_.join();  // after its last read: the reader's totals are final
        ended_ = true;
        if (const auto e = queue_.failure()) std::rethrow_exception(e);
        return false;
    }
    return true;
}

template <typename T>
std::size_t ReadAhead::take(const T *&frames, std::size_t n) {
    start(std::is_same<T, float>::value);
    if (used_ == current_.frames && !next_chunk()) return 0;
    const std::size_t k = std::min(n, current_.frames - used_);
    frames = current_.samples<T>().data() + 2 * used_;
    used_ += k;
    frames_read_ += static_cast<int64_t>(k);
    return k;
}

template <typename T>
std::size_t ReadAhead::copy_out(T *out, std::size_t n) {
    const T *frames = nullptr;
    const std::size_t k = take(frames, n);
    if (k > 0) std::memcpy(out, frames, 2 * k * sizeof(T));
    return k;
}

std::size_t ReadAhead::read_in_place(const int16_t *&frames, std::size_t n) { return take(frames, n); }
std::size_t ReadAhead::read(int16_t *out, std::size_t n) { return copy_out(out, n); }
std::size_t ReadAhead::read(float *out, std::size_t n) { return copy_out(out, n); }

// ---- WriteBehind

WriteBehind::WriteBehind(SampleWriter &out, std::size_t frames_per_write)
    : out_(out), per_write_(frames_per_write), worker_([this] { consume(); }) {}

WriteBehind::~WriteBehind() {
    queue_.stop();
    if (worker_.joinable()) worker_.join();
}

void WriteBehind::consume() {
    pthread_setname_np(pthread_self(), "vorl-write");
    try {
        SampleChunk chunk;
        while (queue_.take_full(chunk)) {
            if (chunk.is_float)
                out_.write(chunk.f32.data(), chunk.frames);
            else
                out_.write(chunk.s16.data(), chunk.frames);
            queue_.recycle(std::move(chunk));
        }
    } catch (...) {
        queue_.fail(std::current_exception());
        queue_.stop();  // the writer takes no more
    }
}

void WriteBehind::hand_over() {
    if (gathering_.frames == 0) return;
    queue_.put_full(std::move(gathering_));
    gathering_ = SampleChunk{};
    if (!queue_.take_empty(gathering_)) finish_worker();  // stopped: the worker failed
    gathering_.frames = 0;
    gathering_.s16.clear();
    gathering_.f32.clear();
}

template <typename T>
void WriteBehind::put(const T *interleaved, std::size_t frames) {
    constexpr bool as_float = std::is_same<T, float>::value;
    if (gathering_.is_float != as_float) hand_over();
    gathering_.is_float = as_float;
    std::vector<T> &samples = gathering_.samples<T>();
    samples.insert(samples.end(), interleaved, interleaved + 2 * frames);
    gathering_.frames += frames;
    if (gathering_.frames >= per_write_) hand_over();
}
void WriteBehind::write(const int16_t *interleaved, std::size_t frames) { put(interleaved, frames); }
void WriteBehind::write(const float *interleaved, std::size_t frames) { put(interleaved, frames); }

void WriteBehind::finish_worker() {
    if (worker_.joinable()) worker_.join();
    if (const auto e = queue_.failure()) std::rethrow_exception(e);
}

void WriteBehind::commit() {
    hand_over();
    queue_.close();
    finish_worker();
    out_.commit();
}

}  // namespace vorl
