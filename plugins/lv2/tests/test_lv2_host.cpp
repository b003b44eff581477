// The plugin binary driven by a minimal LV2 host in the test: the tuning
// table set by path (patch:Set through the worker), read back (patch:Get),
// kept in the state, and refused when damaged, saying why in the host's log. Its output is compared with
// the library run through its host interface on the same table, which is
// 768 frames late just as the plugin is.
#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <lv2/atom/forge.h>
#include <lv2/atom/util.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/patch/patch.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include "table_builder.h"
#include "table_checksum.h"

namespace {

constexpr uint32_t kFrames = 256 * 60;
constexpr char kUri[] = "urn:libvorl:vorl";
constexpr char kTableKey[] = "urn:libvorl:vorl#table";

std::map<std::string, LV2_URID> g_ids;
LV2_URID map_uri(LV2_URID_Map_Handle, const char *uri) { return g_ids.emplace(uri, g_ids.size() + 1).first->second; }

// A stereo test signal: a tone and decorrelated noise, as 16-bit values.
std::vector<int16_t> signal() {
    std::vector<int16_t> s(2 * kFrames);
    uint32_t x = 1;
    for (uint32_t i = 0; i < 2 * kFrames; ++i) {
        x = x * 1664525u + 1013904223u;
        s[i] = static_cast<int16_t>(static_cast<int32_t>(x >> 20) - 2048 + (i % 96 < 48 ? 3000 : -3000));
    }
    return s;
}

// The library through its host interface, zoom drive on from the start,
// raw stream. A drive reaches the library three blocks after it starts.
std::vector<int16_t> library_output(const std::string &table_path) {
    VORLResource res{};
    VORLGetResourceSize(&res);
    std::vector<uint64_t> work((res.resource_size + 7) / 8);
    res.p_work = work.data();
    res.p_tbl_path = table_path.c_str();
    VORLGetResourceInfo(&res);
    VORLInitialize(&res);
    EXPECT_EQ(VORLPreProcess(&res), VORL_OK);
    const std::vector<int16_t> in = signal();
    std::vector<int16_t> out(in.size());
    for (uint32_t b = 0; b < kFrames / 256; ++b) {
        VORLSetDriveState(&res, b >= 3 ? 1 : 0, 0, 0);
        for (int i = 0; i < 256; ++i) {
            res.p_in_ch0[i] = in[2 * (256 * b + i)];
            res.p_in_ch1[i] = in[2 * (256 * b + i) + 1];
        }
        VORLEnterLibrary(&res);
        std::memcpy(&out[2 * 256 * b], res.p_out, 256 * 2 * sizeof(int16_t));
    }
    return out;
}

// The host's log: every message the plugin sends, whatever its type.
int log_vprintf(LV2_Log_Handle h, LV2_URID, const char *fmt, va_list ap) {
    char text[2048];
    const int n = std::vsnprintf(text, sizeof text, fmt, ap);
    static_cast<std::vector<std::string> *>(h)->emplace_back(text);
    return n;
}
int log_printf(LV2_Log_Handle h, LV2_URID type, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const int n = log_vprintf(h, type, fmt, ap);
    va_end(ap);
    return n;
}

struct Host {
    const LV2_Descriptor *desc = nullptr;
    LV2_Handle plugin = nullptr;
    LV2_URID_Map map{nullptr, map_uri};
    std::vector<std::string> jobs;  // the worker's queue, run synchronously
    LV2_Worker_Schedule schedule{this, [](LV2_Worker_Schedule_Handle h, uint32_t size, const void *data) {
                                     static_cast<Host *>(h)->jobs.emplace_back(static_cast<const char *>(data), size);
                                     return LV2_WORKER_SUCCESS;
                                 }};
    std::vector<std::string> logged;
    LV2_Log_Log log{&logged, log_printf, log_vprintf};
    float controls[7] = {1, 0, 0, 0, 1, 0, 0};  // zoom, af, wind, pulse, strength, detect, latency
    alignas(8) uint8_t in_seq[4096] = {}, out_seq[4096] = {};
    LV2_Atom_Forge forge{};

    // `features`: false for a host that offers none at all.
    explicit Host(void *lib, bool features = true) {
        desc = reinterpret_cast<const LV2_Descriptor *(*)(uint32_t)>(dlsym(lib, "lv2_descriptor"))(0);
        const LV2_Feature map_f{LV2_URID__map, &map}, work_f{LV2_WORKER__schedule, &schedule},
            log_f{LV2_LOG__log, &log};
        const LV2_Feature *offered[] = {&map_f, &work_f, &log_f, nullptr};
        plugin = desc->instantiate(desc, 48000, "", features ? offered : offered + 3);
        for (uint32_t p = 4; p < 11; ++p) desc->connect_port(plugin, p, &controls[p - 4]);
        desc->connect_port(plugin, 11, in_seq);
        desc->connect_port(plugin, 12, out_seq);
        desc->activate(plugin);
        lv2_atom_forge_init(&forge, &map);
        clear_messages();
    }
    ~Host() { desc->cleanup(plugin); }
    LV2_URID id(const char *uri) { return map.map(nullptr, uri); }

    void clear_messages() {
        lv2_atom_forge_set_buffer(&forge, in_seq, sizeof in_seq);
        LV2_Atom_Forge_Frame f;
        lv2_atom_forge_sequence_head(&forge, &f, 0);
        lv2_atom_forge_pop(&forge, &f);
    }
    // One message (patch:Set of the table path, or patch:Get), handled by
    // an empty run; the worker's answer arrives before the next run.
    void message(const std::string *path) {
        lv2_atom_forge_set_buffer(&forge, in_seq, sizeof in_seq);
        LV2_Atom_Forge_Frame seq, obj;
        lv2_atom_forge_sequence_head(&forge, &seq, 0);
        lv2_atom_forge_frame_time(&forge, 0);
        lv2_atom_forge_object(&forge, &obj, 0, id(path ? LV2_PATCH__Set : LV2_PATCH__Get));
        if (path != nullptr) {
            lv2_atom_forge_key(&forge, id(LV2_PATCH__property));
            lv2_atom_forge_urid(&forge, id(kTableKey));
            lv2_atom_forge_key(&forge, id(LV2_PATCH__value));
            lv2_atom_forge_path(&forge, path->c_str(), static_cast<uint32_t>(path->size()));
        }
        lv2_atom_forge_pop(&forge, &obj);
        lv2_atom_forge_pop(&forge, &seq);
        run_frames(nullptr, nullptr, 0);
        clear_messages();
        const auto *worker = static_cast<const LV2_Worker_Interface *>(desc->extension_data(LV2_WORKER__interface));
        for (const std::string &job : jobs)
            worker->work(plugin, [](LV2_Worker_Respond_Handle, uint32_t, const void *) { return LV2_WORKER_SUCCESS; },
                         nullptr, static_cast<uint32_t>(job.size()), job.data());
        if (!jobs.empty()) worker->work_response(plugin, 0, nullptr);
        jobs.clear();
    }
    // The path the plugin announced on its notify port in the last run.
    std::string announced() {
        std::string found;
        const auto *seq = reinterpret_cast<const LV2_Atom_Sequence *>(out_seq);
        LV2_ATOM_SEQUENCE_FOREACH(seq, ev) {
            const LV2_Atom *value = nullptr;
            lv2_atom_object_get(reinterpret_cast<const LV2_Atom_Object *>(&ev->body), id(LV2_PATCH__value), &value, 0);
            if (value != nullptr) found.assign(static_cast<const char *>(LV2_ATOM_BODY_CONST(value)));
        }
        return found;
    }
    void run_frames(float *l, float *r, uint32_t n) {
        reinterpret_cast<LV2_Atom *>(out_seq)->size = sizeof out_seq - sizeof(LV2_Atom);
        for (uint32_t p = 0; p < 4; ++p) desc->connect_port(plugin, p, p % 2 ? r : l);
        desc->run(plugin, n);
    }
    std::vector<int16_t> process() {
        const std::vector<int16_t> in = signal();
        std::vector<float> l(kFrames), r(kFrames);
        for (uint32_t i = 0; i < kFrames; ++i) l[i] = in[2 * i] / 32768.0f, r[i] = in[2 * i + 1] / 32768.0f;
        for (uint32_t at = 0; at < kFrames; at += 1000)  // in place, 1000 frames per call
            run_frames(&l[at], &r[at], std::min(1000u, kFrames - at));
        std::vector<int16_t> out(2 * kFrames);
        for (uint32_t i = 0; i < kFrames; ++i)
            out[2 * i] = static_cast<int16_t>(l[i] * 32768.0f), out[2 * i + 1] = static_cast<int16_t>(r[i] * 32768.0f);
        return out;
    }
};

class Lv2Host : public ::testing::Test {
protected:
    void SetUp() override {
        lib_ = dlopen(VORL_LV2_BINARY, RTLD_NOW);
        ASSERT_NE(lib_, nullptr) << dlerror();
        st_vorl_tbl t = vorl::tablekit::reference_table();
        write(table_, &t, sizeof t);
        st_vorl_tbl broken = t;
        broken.st_vorl.nr_proc_min_freq_bin = 200;  // an empty processing range
        broken.st_vorl.nr_proc_max_freq_bin = 10;
        vorl::tablekit::seal(broken);
        write(broken_, &broken, sizeof broken);
        t.st_vorl.over_est += 1.0f;  // checksum now wrong
        write(damaged_, &t, sizeof t);
        write(short_, &t, 100);
    }
    void TearDown() override {
        for (const std::string &p : {table_, damaged_, short_, broken_}) std::remove(p.c_str());
        dlclose(lib_);
    }
    static void write(const std::string &path, const void *data, std::size_t size) {
        std::FILE *f = std::fopen(path.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    void *lib_ = nullptr;
    const std::string dir_ = ::testing::TempDir();
    const std::string table_ = dir_ + "/lv2_reference.tbl", damaged_ = dir_ + "/lv2_damaged.tbl",
                      short_ = dir_ + "/lv2_short.tbl", broken_ = dir_ + "/lv2_broken.tbl";
};

TEST_F(Lv2Host, TablePathIsLoadedAnnouncedKeptInStateAndCheckedFirst) {
    Host set(lib_);
    set.message(&table_);
    set.run_frames(nullptr, nullptr, 0);  // the load is announced in the run after it
    EXPECT_EQ(set.announced(), table_);
    const std::vector<int16_t> with_table = set.process();
    EXPECT_EQ(with_table, library_output(table_));
    const std::vector<int16_t> builtin = Host(lib_).process();
    EXPECT_NE(builtin, with_table);
    set.message(nullptr);  // patch:Get
    EXPECT_EQ(set.announced(), table_);

    // Saved state restored into a fresh instance brings the table back.
    std::map<uint32_t, std::string> store;
    const auto *state = static_cast<const LV2_State_Interface *>(set.desc->extension_data(LV2_STATE__interface));
    state->save(set.plugin,
                [](LV2_State_Handle h, uint32_t key, const void *value, size_t size, uint32_t, uint32_t) {
                    (*static_cast<std::map<uint32_t, std::string> *>(h))[key].assign(static_cast<const char *>(value), size);
                    return LV2_STATE_SUCCESS;
                },
                &store, 0, nullptr);
    Host restored(lib_);
    ASSERT_EQ(state->restore(restored.plugin,
                             [](LV2_State_Handle h, uint32_t key, size_t *size, uint32_t *type, uint32_t *flags) -> const void * {
                                 auto &s = *static_cast<std::map<uint32_t, std::string> *>(h);
                                 *size = s[key].size();
                                 *type = map_uri(nullptr, LV2_ATOM__Path);
                                 *flags = 0;
                                 return s[key].data();
                             },
                             &store, 0, nullptr),
              LV2_STATE_SUCCESS);
    EXPECT_EQ(restored.process(), with_table);

    EXPECT_TRUE(set.logged.empty());

    // A host that maps no URIs (a batch file processor) gets the built-in
    // table's output; a table path sent anyway is not read.
    Host plain(lib_, false);
    ASSERT_NE(plain.plugin, nullptr);
    plain.message(&table_);
    EXPECT_TRUE(plain.jobs.empty());
    EXPECT_EQ(plain.process(), builtin);

    // A damaged or truncated table file, or one that breaks a rule, leaves
    // the built-in table in use, and the host's log names the file and why.
    const std::pair<const std::string *, const char *> refusals[] = {
        {&damaged_, "checksum wrong"}, {&short_, "not a tuning table (100 bytes"}, {&broken_, "nr_proc_min_freq_bin"}};
    for (const auto &[bad, why] : refusals) {
        Host refused(lib_);
        refused.message(bad);
        refused.run_frames(nullptr, nullptr, 0);
        EXPECT_EQ(refused.announced(), "") << *bad;
        EXPECT_EQ(refused.process(), builtin);
        ASSERT_EQ(refused.logged.size(), 1u) << *bad;
        EXPECT_NE(refused.logged[0].find(*bad + ": "), std::string::npos) << refused.logged[0];
        EXPECT_NE(refused.logged[0].find(why), std::string::npos) << refused.logged[0];
    }
}

}  // namespace
