// The entry point of the tool's video module: FFmpeg's reader and writer
// behind the record the tool looks up with dlsym. The module is loaded into
// the tool, whose own symbols (messages, pending files) it uses.
#include "media_io.h"

namespace {

const vorl::VideoModule kModule{
    vorl::VideoModule::kInterface,
    [](const std::string &path) { return vorl::probe_video_container(path); },
    [](const std::string &path) -> std::unique_ptr<vorl::SampleReader> {
        return std::make_unique<vorl::MediaReader>(path);
    },
    [](const vorl::SampleReader &source, const std::string &destination, int sample_rate,
       const vorl::AudioEncoding &encoding) -> std::unique_ptr<vorl::SampleWriter> {
        return std::make_unique<vorl::MediaWriter>(dynamic_cast<const vorl::MediaReader &>(source), destination,
                                                   sample_rate, encoding);
    },
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const vorl::VideoModule *vorl_video_module() { return &kModule; }
