#include "scene.h"

#include <algorithm>
#include <cmath>

#include "camera.h"
#include "content.h"

namespace scenekit {

namespace {

const char *const kTypeNames[] = {"speech", "music", "mixed", "quiet", "loud", "wind", "af"};

// splitmix64: independent random streams from the parts of an id.
uint64_t mix(uint64_t a, uint64_t b) {
    uint64_t z = a * 0x9E3779B97F4A7C15ull + b + 0x632BE59BD9B4E019ull;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

double between(Random &rng, double lo, double hi) { return lo + (hi - lo) * rng.uniform(); }
std::size_t frames_of(double seconds) { return static_cast<std::size_t>(seconds * kRate); }

struct Span {
    std::size_t begin, end;  // frames
    int kind;                // 1, 2 zoom directions; 3 autofocus; 4 wind
};

std::vector<Span> zoom_schedule(std::size_t frames, Random &rng) {
    std::vector<Span> spans;
    for (std::size_t at = frames_of(between(rng, 0.5, 2.5));;) {
        const std::size_t length = frames_of(between(rng, 0.5, 4.0));
        if (at + length + frames_of(0.3) > frames) break;
        spans.push_back({at, at + length, rng.uniform() < 0.5 ? 1 : 2});
        at += length + frames_of(between(rng, 1.0, 4.0));
    }
    return spans;
}

// Groups of one to three autofocus bursts in idle gaps of at least 1 s.
std::vector<Span> af_schedule(const std::vector<Span> &zoom, std::size_t frames, Random &rng) {
    std::vector<Span> spans;
    std::size_t gap_start = 0;
    for (std::size_t i = 0; i <= zoom.size(); ++i) {
        const std::size_t gap_end = i < zoom.size() ? zoom[i].begin : frames;
        const std::size_t margin = frames_of(0.3);
        if (gap_end > gap_start + frames_of(1.0) && rng.uniform() < 0.8) {
            std::size_t at = gap_start + margin + static_cast<std::size_t>(rng.uniform() * (gap_end - gap_start - frames_of(1.0)));
            for (int bursts = 1 + static_cast<int>(rng.uniform() * 3); bursts > 0; --bursts) {
                const std::size_t length = frames_of(between(rng, 0.06, 0.25));
                if (at + length + margin > gap_end) break;
                spans.push_back({at, at + length, 3});
                at += length + frames_of(between(rng, 0.1, 0.3));
            }
        }
        if (i < zoom.size()) gap_start = zoom[i].end;
    }
    return spans;
}

std::vector<Span> wind_schedule(std::size_t frames, Random &rng) {
    std::vector<Span> spans;
    for (std::size_t at = frames_of(between(rng, 0.0, 3.0));;) {
        const std::size_t length = frames_of(between(rng, 4.0, 9.0));
        if (at + frames_of(1.0) > frames) break;
        spans.push_back({at, std::min(frames, at + length), 4});
        at += length + frames_of(between(rng, 1.0, 5.0));
    }
    return spans;
}

// The recording level of a scene: every part is scaled alike, so the
// content-to-motor ratio stays and only the level the engine sees changes.
struct RecordingLevel {
    double gain = 1.0;        // applied to every part
    bool full_scale = false;  // instead: raised (or lowered) to a peak of 0.95
};

// Quantises the parts and sums them at `level`; scales everything down if
// the sum would clip, so that noisy = clean + noises holds exactly.
void finish(Scene &scene, const Stereo &clean, const Stereo noise[3], const std::vector<Span> &spans,
            RecordingLevel level = {}) {
    const std::size_t frames = clean.left.size();
    double peak = 0.0;
    for (std::size_t n = 0; n < frames; ++n) {
        double l = clean.left[n], r = clean.right[n];
        for (int k = 0; k < 3; ++k) {
            l += noise[k].left[n];
            r += noise[k].right[n];
        }
        peak = std::max({peak, std::fabs(l), std::fabs(r)});
    }
    const double gain = peak * level.gain > 0.95 || (level.full_scale && peak > 0.0) ? 0.95 / peak : level.gain;
    auto quantised = [gain](const Stereo &s) {
        if (gain == 1.0) return to_pcm16(s.left, s.right);
        Stereo scaled = s;
        for (double &v : scaled.left) v *= gain;
        for (double &v : scaled.right) v *= gain;
        return to_pcm16(scaled.left, scaled.right);
    };
    scene.clean = quantised(clean);
    scene.zoom = quantised(noise[0]);
    scene.af = quantised(noise[1]);
    scene.wind = quantised(noise[2]);
    scene.noisy.resize(scene.clean.size());
    for (std::size_t i = 0; i < scene.noisy.size(); ++i)
        scene.noisy[i] = static_cast<int16_t>(scene.clean[i] + scene.zoom[i] + scene.af[i] + scene.wind[i]);
    scene.words.assign((frames + kBlock - 1) / kBlock, DriveWords{});
    for (const Span &s : spans)
        for (std::size_t b = s.begin / kBlock; b * kBlock < s.end && b < scene.words.size(); ++b) {
            DriveWords &w = scene.words[b];
            if (s.kind <= 2) w.zoom = static_cast<uint32_t>(s.kind);
            if (s.kind == 3) w.af = 1;
            if (s.kind == 4) w.wind = 1;
        }
}

// Runs the camera's motors over their spans and the wind over its spans.
void add_noises(Stereo noise[3], const Camera &cam, const std::vector<Span> &spans, Random &rng) {
    // A motor as the camera's design carries it to the capsules.
    auto motor = [&](Stereo &out, const MotorPath path[2], const EnclosurePath &enclosure, const MotorSound &sound,
                     const Span &s) {
        if (cam.enclosed)
            add_enclosed_motor(out.left, out.right, enclosure, s.begin, s.end, sound, rng);
        else
            add_motor(out.left, out.right, path, s.begin, s.end, sound, rng);
    };
    for (const Span &s : spans) {
        if (s.kind <= 2)
            motor(noise[0], cam.zoom_path, cam.zoom_enclosure, cam.zoom[s.kind - 1], s);
        else if (s.kind == 3)
            motor(noise[1], cam.af_path, cam.af_enclosure, cam.af, s);
        else
            add_wind(noise[2].left, noise[2].right, s.begin, s.end, rng, between(rng, 0.1, 0.35));
    }
}

}  // namespace

const char *name_of(SceneType type) { return kTypeNames[static_cast<int>(type)]; }

bool parse_scene_type(const std::string &name, SceneType &type) {
    for (SceneType t : kSceneTypes)
        if (name == name_of(t)) {
            type = t;
            return true;
        }
    return false;
}

std::string SceneId::name() const {
    return std::string(name_of(type)) + "-c" + std::to_string(camera) + "-s" + std::to_string(seed);
}

Scene make_scene(const SceneId &id, double seconds) {
    const uint64_t base = mix(static_cast<uint64_t>(id.type) + 1, id.seed);
    Random content_rng(mix(base, 1)), schedule_rng(mix(base, 2));
    Random noise_rng(mix(mix(base, 3), static_cast<uint64_t>(id.camera)));
    const std::size_t frames = frames_of(seconds);

    Stereo clean(frames);
    add_room(clean, content_rng);
    switch (id.type) {
    case SceneType::speech: add_speech(clean, content_rng, 1.0); break;
    case SceneType::music: add_music(clean, content_rng, 1.0); break;
    case SceneType::mixed:
        add_music(clean, content_rng, 0.5);
        add_speech(clean, content_rng, 1.0);
        break;
    case SceneType::quiet: add_speech(clean, content_rng, 0.7); break;  // a soft talker, recorded low
    case SceneType::loud:  // music under speech, recorded near full scale
        add_music(clean, content_rng, 0.25);
        add_speech(clean, content_rng, 0.5);
        break;
    case SceneType::wind: add_speech(clean, content_rng, 0.7); break;
    case SceneType::af: add_speech(clean, content_rng, 0.7); break;
    }

    std::vector<Span> spans = zoom_schedule(frames, schedule_rng);
    if (id.type == SceneType::af) {
        const std::vector<Span> af = af_schedule(spans, frames, schedule_rng);
        spans.insert(spans.end(), af.begin(), af.end());
    }
    if (id.type == SceneType::wind) {
        const std::vector<Span> wind = wind_schedule(frames, schedule_rng);
        spans.insert(spans.end(), wind.begin(), wind.end());
    }
    Stereo noise[3] = {Stereo(frames), Stereo(frames), Stereo(frames)};
    add_noises(noise, make_camera(id.camera), spans, noise_rng);
    Scene scene;
    scene.id = id;
    RecordingLevel level;
    if (id.type == SceneType::quiet) level.gain = 0.125;  // 18 dB down
    if (id.type == SceneType::loud) level.full_scale = true;
    finish(scene, clean, noise, spans, level);
    return scene;
}

Scene make_calibration(int camera, uint64_t seed) {
    Random rng(mix(mix(0xCA1Bull, seed), static_cast<uint64_t>(camera)));
    const std::size_t frames = frames_of(30.0);
    std::vector<Span> spans;
    std::size_t at = frames_of(1.0);
    for (int kind : {1, 2, 1, 2}) {
        const std::size_t length = frames_of(between(rng, 3.0, 4.0));
        spans.push_back({at, at + length, kind});
        at += length + frames_of(1.5);
    }
    for (int k = 0; k < 6; ++k) {
        const std::size_t length = frames_of(between(rng, 0.1, 0.25));
        spans.push_back({at, at + length, 3});
        at += length + frames_of(0.6);
    }
    Stereo clean(frames);
    add_room(clean, rng);
    Stereo noise[3] = {Stereo(frames), Stereo(frames), Stereo(frames)};
    add_noises(noise, make_camera(camera), spans, rng);
    Scene scene;
    scene.id = {SceneType::quiet, camera, seed};
    finish(scene, clean, noise, spans);
    return scene;
}

}  // namespace scenekit
