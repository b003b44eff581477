// LV2 plugin: the lens-drive noise reducer for audio editors and ffmpeg.
// Stereo in and out, the drive words and the strength as control ports, the
// latency reported on its own port, and the tuning table as a path
// parameter (loaded by the host's worker thread, kept in the plugin state);
// without one, the built-in table. Problems go to the host's log, or to
// standard error when the host keeps none.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <lv2/atom/atom.h>
#include <lv2/atom/forge.h>
#include <lv2/atom/util.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/log/logger.h>
#include <lv2/patch/patch.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include "default_table.h"
#include "stream_runner.h"
#include "table_rules.h"

#define VORL_LV2_URI "urn:libvorl:vorl"
#define VORL_LV2_TABLE VORL_LV2_URI "#table"

namespace {

using vorl::lv2::Controls;
using vorl::lv2::StreamRunner;

enum Port {
    kInL, kInR, kOutL, kOutR,
    kZoom, kAf, kWind, kPulse, kStrength, kDetect, kLatency,
    kControl, kNotify, kPortCount
};

constexpr std::size_t kMaxPath = 1024;

struct Uris {
    LV2_URID atom_path, atom_urid, atom_object;
    LV2_URID patch_set, patch_get, patch_property, patch_value, table;
};

// The worker's answer: a table read from a file, or why it could not be.
struct LoadResult {
    bool ok;
    char path[kMaxPath];
    char problem[256];
};

struct Plugin {
    StreamRunner runner;
    void *ports[kPortCount] = {};
    LV2_URID_Map *map = nullptr;
    LV2_Worker_Schedule *schedule = nullptr;
    LV2_Log_Logger logger{};         // falls back to standard error
    Uris uris{};
    LV2_Atom_Forge forge{};

    char table_path[kMaxPath] = "";  // "" for the built-in table
    bool load_pending = false;       // a request is with the worker
    char queued_path[kMaxPath] = ""; // the latest request made meanwhile
    bool queued = false;
    bool announce = false;           // tell the host the current path
    st_vorl_tbl scratch{};           // the worker's read buffer
    LoadResult result{};             // ... and its answer
};

st_vorl_tbl builtin_table() {
    st_vorl_tbl t;
    static_assert(sizeof vorl::kDefaultTable == sizeof t, "embedded table has the file's size");
    std::memcpy(&t, vorl::kDefaultTable, sizeof t);
    return t;
}

bool copy_path(char (&to)[kMaxPath], const char *from, std::size_t len) {
    if (len >= kMaxPath) return false;
    std::memcpy(to, from, len);
    to[len] = '\0';
    return true;
}

const char *status_words(int32_t status) {
    switch (status) {
    case VORL_ERR_CHECKSUM: return "checksum wrong, the tuning table is damaged";
    case VORL_ERR_VERSION: return "unsupported tuning-table version (expected 0x01030000)";
    default: return "the library refused the tuning table";
    }
}

// Reads a table file and makes the library's checks (size, checksum,
// version), then the table kit's rules, as "vorl process" does without
// --force; false with the problem in words.
bool read_table_file(const char *path, st_vorl_tbl &t, char (&problem)[256]) {
    std::FILE *f = std::fopen(path, "rb");
    if (f == nullptr) {
        std::snprintf(problem, sizeof problem, "cannot open the tuning table");
        return false;
    }
    const std::size_t got = std::fread(&t, 1, sizeof t, f);
    const bool longer = std::fgetc(f) != EOF;
    std::fclose(f);
    if (got != sizeof t || longer) {
        std::snprintf(problem, sizeof problem, "not a tuning table (%zu%s bytes, expected %zu)", got,
                      longer ? "+" : "", sizeof t);
        return false;
    }
    const int32_t status = StreamRunner::check(t);
    if (status != VORL_OK) {
        std::snprintf(problem, sizeof problem, "%s", status_words(status));
        return false;
    }
    const auto broken = vorl::tablekit::check_table_rules(t);
    if (!broken.empty())
        std::snprintf(problem, sizeof problem, "%s (see: vorl table check)", vorl::tablekit::summarise(broken).c_str());
    return broken.empty();
}

// Loads a table file into the runner (threads where blocking is allowed).
bool load_file(Plugin &p, const char *path) {
    char problem[256];
    st_vorl_tbl t;
    if (!read_table_file(path, t, problem)) {
        lv2_log_error(&p.logger, "vorl.lv2: %s: %s; keeping the previous table\n", path, problem);
        return false;
    }
    p.runner.load(t);
    copy_path(p.table_path, path, std::strlen(path));
    return true;
}

LV2_Handle instantiate(const LV2_Descriptor *, double rate, const char *, const LV2_Feature *const *features) {
    auto *p = new (std::nothrow) Plugin;
    if (p == nullptr) return nullptr;
    LV2_Log_Log *log = nullptr;
    for (int i = 0; features != nullptr && features[i] != nullptr; ++i) {
        if (std::strcmp(features[i]->URI, LV2_URID__map) == 0)
            p->map = static_cast<LV2_URID_Map *>(features[i]->data);
        else if (std::strcmp(features[i]->URI, LV2_WORKER__schedule) == 0)
            p->schedule = static_cast<LV2_Worker_Schedule *>(features[i]->data);
        else if (std::strcmp(features[i]->URI, LV2_LOG__log) == 0)
            log = static_cast<LV2_Log_Log *>(features[i]->data);
    }
    // The host's log needs mapped message types.
    lv2_log_logger_init(&p->logger, p->map, p->map != nullptr ? log : nullptr);
    if (rate != 48000.0)
        lv2_log_warning(&p->logger, "vorl.lv2: running at %.0f Hz; tuning tables are made for 48000 Hz\n", rate);
    // Without mapped URIs (a plain host such as a batch file processor) the
    // audio and control ports work, with the built-in table: the table
    // parameter and its saved state travel as atoms, which need them.
    if (LV2_URID_Map *m = p->map) {
        auto id = [m](const char *uri) { return m->map(m->handle, uri); };
        p->uris = {id(LV2_ATOM__Path), id(LV2_ATOM__URID), id(LV2_ATOM__Object),
                   id(LV2_PATCH__Set), id(LV2_PATCH__Get), id(LV2_PATCH__property), id(LV2_PATCH__value),
                   id(VORL_LV2_TABLE)};
        lv2_atom_forge_init(&p->forge, m);
    } else {
        lv2_log_note(&p->logger, "vorl.lv2: the host does not map URIs (urid:map): the built-in table is used and "
                                 "no other can be set\n");
    }
    if (p->runner.load(builtin_table()) != VORL_OK) {
        delete p;
        return nullptr;
    }
    return p;
}

void connect_port(LV2_Handle h, uint32_t port, void *data) {
    auto *p = static_cast<Plugin *>(h);
    if (port >= kPortCount) return;
    p->ports[port] = data;
}

void activate(LV2_Handle h) { static_cast<Plugin *>(h)->runner.restart(); }

float *port(const Plugin &p, Port which) { return static_cast<float *>(p.ports[which]); }

float control(const Plugin &p, Port which, float fallback) {
    return p.ports[which] != nullptr ? *port(p, which) : fallback;
}

uint32_t word(float v, uint32_t max) {
    if (!(v > 0.0f)) return 0;
    return v >= static_cast<float>(max) ? max : static_cast<uint32_t>(v + 0.5f);
}

void request_load(Plugin &p, const char *path, std::size_t len) {
    if (p.schedule == nullptr) return;
    if (p.load_pending) {
        p.queued = copy_path(p.queued_path, path, len);
        return;
    }
    char message[kMaxPath];
    if (!copy_path(message, path, len)) return;
    p.load_pending = true;
    if (p.schedule->schedule_work(p.schedule->handle, static_cast<uint32_t>(len + 1), message) !=
        LV2_WORKER_SUCCESS)
        p.load_pending = false;
}

// patch:Set of the table path loads it; patch:Get asks for the current one.
void handle_messages(Plugin &p) {
    const auto *seq = static_cast<const LV2_Atom_Sequence *>(p.ports[kControl]);
    if (seq == nullptr || p.map == nullptr) return;
    const Uris &u = p.uris;
    LV2_ATOM_SEQUENCE_FOREACH(seq, ev) {
        if (ev->body.type != u.atom_object) continue;
        const auto *obj = reinterpret_cast<const LV2_Atom_Object *>(&ev->body);
        if (obj->body.otype == u.patch_get) {
            p.announce = true;
        } else if (obj->body.otype == u.patch_set) {
            const LV2_Atom *property = nullptr, *value = nullptr;
            lv2_atom_object_get(obj, u.patch_property, &property, u.patch_value, &value, 0);
            if (property == nullptr || property->type != u.atom_urid ||
                reinterpret_cast<const LV2_Atom_URID *>(property)->body != u.table)
                continue;
            if (value == nullptr || value->type != u.atom_path) continue;
            const char *path = static_cast<const char *>(LV2_ATOM_BODY_CONST(value));
            request_load(p, path, strnlen(path, value->size));
        }
    }
}

void announce_path(Plugin &p) {
    auto *out = static_cast<LV2_Atom_Sequence *>(p.ports[kNotify]);
    if (out == nullptr || p.map == nullptr) return;
    const uint32_t capacity = out->atom.size;
    lv2_atom_forge_set_buffer(&p.forge, reinterpret_cast<uint8_t *>(out), capacity);
    LV2_Atom_Forge_Frame seq_frame, obj_frame;
    lv2_atom_forge_sequence_head(&p.forge, &seq_frame, 0);
    if (p.announce) {
        lv2_atom_forge_frame_time(&p.forge, 0);
        lv2_atom_forge_object(&p.forge, &obj_frame, 0, p.uris.patch_set);
        lv2_atom_forge_key(&p.forge, p.uris.patch_property);
        lv2_atom_forge_urid(&p.forge, p.uris.table);
        lv2_atom_forge_key(&p.forge, p.uris.patch_value);
        lv2_atom_forge_path(&p.forge, p.table_path, static_cast<uint32_t>(std::strlen(p.table_path)));
        lv2_atom_forge_pop(&p.forge, &obj_frame);
        p.announce = false;
    }
    lv2_atom_forge_pop(&p.forge, &seq_frame);
}

void run(LV2_Handle h, uint32_t n) {
    auto &p = *static_cast<Plugin *>(h);
    handle_messages(p);
    Controls c;
    c.zoom = word(control(p, kZoom, 0), 2);
    c.af = word(control(p, kAf, 0), 1);
    c.wind = word(control(p, kWind, 0), 1);
    c.pulse = control(p, kPulse, 0) > 0.5f;
    c.detect = control(p, kDetect, 0) > 0.5f;
    c.strength = control(p, kStrength, 1);
    if (p.ports[kInL] != nullptr && p.ports[kInR] != nullptr && p.ports[kOutL] != nullptr &&
        p.ports[kOutR] != nullptr)
        p.runner.run(port(p, kInL), port(p, kInR), port(p, kOutL), port(p, kOutR), n, c);
    if (p.ports[kLatency] != nullptr) *port(p, kLatency) = static_cast<float>(p.runner.latency());
    announce_path(p);
}

void cleanup(LV2_Handle h) { delete static_cast<Plugin *>(h); }

// ------------------------------------------------------------- worker

LV2_Worker_Status work(LV2_Handle h, LV2_Worker_Respond_Function respond, LV2_Worker_Respond_Handle rh,
                       uint32_t size, const void *data) {
    auto &p = *static_cast<Plugin *>(h);
    LoadResult &r = p.result;
    std::memset(&r, 0, sizeof r);
    copy_path(r.path, static_cast<const char *>(data), strnlen(static_cast<const char *>(data), size));
    r.ok = read_table_file(r.path, p.scratch, r.problem);
    if (!r.ok) lv2_log_error(&p.logger, "vorl.lv2: %s: %s; keeping the previous table\n", r.path, r.problem);
    const char token = 1;
    return respond(rh, sizeof token, &token);
}

LV2_Worker_Status work_response(LV2_Handle h, uint32_t, const void *) {
    auto &p = *static_cast<Plugin *>(h);
    const LoadResult &r = p.result;
    if (r.ok && p.runner.load(p.scratch) == VORL_OK) copy_path(p.table_path, r.path, std::strlen(r.path));
    p.announce = true;
    p.load_pending = false;
    if (p.queued) {
        p.queued = false;
        request_load(p, p.queued_path, std::strlen(p.queued_path));
    }
    return LV2_WORKER_SUCCESS;
}

// -------------------------------------------------------------- state

LV2_State_Status save(LV2_Handle h, LV2_State_Store_Function store, LV2_State_Handle sh, uint32_t,
                      const LV2_Feature *const *features) {
    auto &p = *static_cast<Plugin *>(h);
    if (p.table_path[0] == '\0') return LV2_STATE_SUCCESS;  // the built-in table
    const LV2_State_Map_Path *map_path = nullptr;
    for (int i = 0; features != nullptr && features[i] != nullptr; ++i)
        if (std::strcmp(features[i]->URI, LV2_STATE__mapPath) == 0)
            map_path = static_cast<const LV2_State_Map_Path *>(features[i]->data);
    std::string path = p.table_path;
    if (map_path != nullptr) {
        char *abstract = map_path->abstract_path(map_path->handle, p.table_path);
        path = abstract;
        std::free(abstract);
    }
    return store(sh, p.uris.table, path.c_str(), path.size() + 1, p.uris.atom_path,
                 LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE);
}

LV2_State_Status restore(LV2_Handle h, LV2_State_Retrieve_Function retrieve, LV2_State_Handle sh, uint32_t,
                         const LV2_Feature *const *features) {
    auto &p = *static_cast<Plugin *>(h);
    if (p.map == nullptr) return LV2_STATE_SUCCESS;  // no keys to ask for: the built-in table stays
    std::size_t size = 0;
    uint32_t type = 0, flags = 0;
    const void *value = retrieve(sh, p.uris.table, &size, &type, &flags);
    if (value == nullptr || type != p.uris.atom_path) {
        p.runner.load(builtin_table());
        p.table_path[0] = '\0';
        return LV2_STATE_SUCCESS;
    }
    const LV2_State_Map_Path *map_path = nullptr;
    for (int i = 0; features != nullptr && features[i] != nullptr; ++i)
        if (std::strcmp(features[i]->URI, LV2_STATE__mapPath) == 0)
            map_path = static_cast<const LV2_State_Map_Path *>(features[i]->data);
    std::string path(static_cast<const char *>(value), strnlen(static_cast<const char *>(value), size));
    if (map_path != nullptr) {
        char *absolute = map_path->absolute_path(map_path->handle, path.c_str());
        path = absolute;
        std::free(absolute);
    }
    return load_file(p, path.c_str()) ? LV2_STATE_SUCCESS : LV2_STATE_ERR_UNKNOWN;
}

const void *extension_data(const char *uri) {
    static const LV2_State_Interface state = {save, restore};
    static const LV2_Worker_Interface worker = {work, work_response, nullptr};
    if (std::strcmp(uri, LV2_STATE__interface) == 0) return &state;
    if (std::strcmp(uri, LV2_WORKER__interface) == 0) return &worker;
    return nullptr;
}

const LV2_Descriptor kDescriptor = {VORL_LV2_URI, instantiate, connect_port, activate, run,
                                    nullptr,      cleanup,     extension_data};

}  // namespace

LV2_SYMBOL_EXPORT const LV2_Descriptor *lv2_descriptor(uint32_t index) {
    return index == 0 ? &kDescriptor : nullptr;
}
