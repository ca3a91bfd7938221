#include "devices/pulse/PulseControl.h"

#include "devices/pulse/PulseLoop.h"

#include <cstring>

namespace parlova::pulse {
namespace {

std::string prop(const pa_proplist* list, const char* key) {
    const char* value = list ? pa_proplist_gets(list, key) : nullptr;
    return value ? value : "";
}

PortKind portKind(const pa_sink_port_info* port) {
    if (!port) return PortKind::unknown;
    switch (port->type) {
    case PA_DEVICE_PORT_TYPE_SPEAKER:
        return PortKind::speaker;
    case PA_DEVICE_PORT_TYPE_HEADPHONES:
    case PA_DEVICE_PORT_TYPE_HEADSET:
    case PA_DEVICE_PORT_TYPE_EARPIECE:
        return PortKind::headphones;
    case PA_DEVICE_PORT_TYPE_UNKNOWN:
        return PortKind::unknown;
    default:
        return PortKind::other;
    }
}

struct SnapshotRequest {
    PulseLoop* loop;
    ServerSnapshot* snap;
};

void onSink(pa_context*, const pa_sink_info* info, int eol, void* userdata) {
    auto* req = static_cast<SnapshotRequest*>(userdata);
    if (eol || !info) {
        req->loop->signal();
        return;
    }
    SinkInfo s;
    s.index = info->index;
    s.name = info->name ? info->name : "";
    s.description = info->description ? info->description : "";
    s.channels = info->sample_spec.channels;
    s.rate = info->sample_spec.rate;
    s.monitorSource = info->monitor_source;
    if (info->active_port) {
        s.activePort = info->active_port->name ? info->active_port->name : "";
        s.activePortKind = portKind(info->active_port);
    }
    s.formFactor = prop(info->proplist, PA_PROP_DEVICE_FORM_FACTOR);
    req->snap->sinks.push_back(std::move(s));
}

void onSource(pa_context*, const pa_source_info* info, int eol, void* userdata) {
    auto* req = static_cast<SnapshotRequest*>(userdata);
    if (eol || !info) {
        req->loop->signal();
        return;
    }
    SourceInfo s;
    s.index = info->index;
    s.name = info->name ? info->name : "";
    s.description = info->description ? info->description : "";
    s.channels = info->sample_spec.channels;
    s.rate = info->sample_spec.rate;
    s.monitorOfSink = info->monitor_of_sink;
    s.masterDevice = prop(info->proplist, "device.master_device");
    s.loopbackSink = prop(info->proplist, "parlova.loopback.sink");
    s.deviceClass = prop(info->proplist, PA_PROP_DEVICE_CLASS);
    s.formFactor = prop(info->proplist, PA_PROP_DEVICE_FORM_FACTOR);
    req->snap->sources.push_back(std::move(s));
}

void onServer(pa_context*, const pa_server_info* info, void* userdata) {
    auto* req = static_cast<SnapshotRequest*>(userdata);
    if (info) {
        req->snap->defaultSource = info->default_source_name ? info->default_source_name : "";
        req->snap->defaultSink = info->default_sink_name ? info->default_sink_name : "";
        req->snap->serverName = info->server_name ? info->server_name : "";
    }
    req->loop->signal();
}

struct IndexRequest {
    PulseLoop* loop;
    uint32_t index = PA_INVALID_INDEX;
};

void onIndex(pa_context*, uint32_t index, void* userdata) {
    auto* req = static_cast<IndexRequest*>(userdata);
    req->index = index;
    req->loop->signal();
}

struct SuccessRequest {
    PulseLoop* loop;
    bool ok = false;
};

void onSuccess(pa_context*, int success, void* userdata) {
    auto* req = static_cast<SuccessRequest*>(userdata);
    req->ok = success != 0;
    req->loop->signal();
}

struct ModulesRequest {
    PulseLoop* loop;
    std::vector<ModuleInfo>* list;
};

void onModule(pa_context*, const pa_module_info* info, int eol, void* userdata) {
    auto* req = static_cast<ModulesRequest*>(userdata);
    if (eol || !info) {
        req->loop->signal();
        return;
    }
    req->list->push_back({info->index, info->name ? info->name : "", info->argument ? info->argument : ""});
}

void onEvent(pa_context*, pa_subscription_event_type_t type, uint32_t index, void* userdata) {
    auto* handler = static_cast<PulseControl::EventHandler*>(userdata);
    if (!handler || !*handler) return;
    Facility facility = Facility::other;
    switch (type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) {
    case PA_SUBSCRIPTION_EVENT_SINK: facility = Facility::sink; break;
    case PA_SUBSCRIPTION_EVENT_SOURCE: facility = Facility::source; break;
    case PA_SUBSCRIPTION_EVENT_SERVER: facility = Facility::server; break;
    default: return;
    }
    Change change = Change::changed;
    switch (type & PA_SUBSCRIPTION_EVENT_TYPE_MASK) {
    case PA_SUBSCRIPTION_EVENT_NEW: change = Change::added; break;
    case PA_SUBSCRIPTION_EVENT_REMOVE: change = Change::removed; break;
    default: break;
    }
    (*handler)(facility, change, index);
}

}  // namespace

PulseControl& PulseControl::shared() {
    // Never destroyed: the connection's thread may still deliver events while
    // static objects are torn down at exit.
    static PulseControl* instance = new PulseControl;
    return *instance;
}

bool PulseControl::connect() {
    std::lock_guard guard(mutex_);
    return connectLocked();
}

int PulseControl::lastError() const {
    std::lock_guard guard(mutex_);
    return lastError_;
}

bool PulseControl::connectLocked() {
    if (loop_ && loop_->isReady()) return true;
    loop_.reset();
    auto loop = std::make_unique<PulseLoop>("Parlova device control");
    if (!loop->isReady()) {
        lastError_ = loop->error() ? loop->error() : PA_ERR_CONNECTIONREFUSED;
        return false;
    }
    lastError_ = 0;
    loop_ = std::move(loop);
    if (events_) subscribeLocked();
    return true;
}

void PulseControl::disconnect() {
    std::lock_guard guard(mutex_);
    loop_.reset();
}

std::optional<ServerSnapshot> PulseControl::snapshot() {
    std::lock_guard guard(mutex_);
    if (!connectLocked()) return std::nullopt;
    ServerSnapshot snap;
    SnapshotRequest req{loop_.get(), &snap};
    PulseLoop::Lock lock(*loop_);
    pa_context* c = loop_->context();
    if (!loop_->wait(pa_context_get_server_info(c, onServer, &req))) return std::nullopt;
    if (!loop_->wait(pa_context_get_sink_info_list(c, onSink, &req))) return std::nullopt;
    if (!loop_->wait(pa_context_get_source_info_list(c, onSource, &req))) return std::nullopt;
    return snap;
}

bool PulseControl::setDefaultSource(const std::string& name) {
    std::lock_guard guard(mutex_);
    if (!connectLocked()) return false;
    SuccessRequest req{loop_.get()};
    PulseLoop::Lock lock(*loop_);
    return loop_->wait(pa_context_set_default_source(loop_->context(), name.c_str(), onSuccess, &req)) && req.ok;
}

bool PulseControl::setDefaultSink(const std::string& name) {
    std::lock_guard guard(mutex_);
    if (!connectLocked()) return false;
    SuccessRequest req{loop_.get()};
    PulseLoop::Lock lock(*loop_);
    return loop_->wait(pa_context_set_default_sink(loop_->context(), name.c_str(), onSuccess, &req)) && req.ok;
}

std::optional<uint32_t> PulseControl::loadModule(const std::string& name, const std::string& argument, int* error) {
    std::lock_guard guard(mutex_);
    if (!connectLocked()) {
        if (error) *error = lastError_;
        return std::nullopt;
    }
    IndexRequest req{loop_.get()};
    PulseLoop::Lock lock(*loop_);
    const bool done = loop_->wait(pa_context_load_module(loop_->context(), name.c_str(), argument.c_str(), onIndex, &req));
    if (!done || req.index == PA_INVALID_INDEX) {
        if (error) *error = pa_context_errno(loop_->context());
        return std::nullopt;
    }
    return req.index;
}

bool PulseControl::unloadModule(uint32_t index) {
    std::lock_guard guard(mutex_);
    if (!connectLocked()) return false;
    SuccessRequest req{loop_.get()};
    PulseLoop::Lock lock(*loop_);
    return loop_->wait(pa_context_unload_module(loop_->context(), index, onSuccess, &req)) && req.ok;
}

std::optional<std::vector<ModuleInfo>> PulseControl::modules() {
    std::lock_guard guard(mutex_);
    if (!connectLocked()) return std::nullopt;
    std::vector<ModuleInfo> list;
    ModulesRequest req{loop_.get(), &list};
    PulseLoop::Lock lock(*loop_);
    if (!loop_->wait(pa_context_get_module_info_list(loop_->context(), onModule, &req))) return std::nullopt;
    return list;
}

void PulseControl::subscribe(EventHandler events, std::function<void()> lost) {
    std::lock_guard guard(mutex_);
    events_ = std::move(events);
    lost_ = std::move(lost);
    if (loop_ && loop_->isReady())
        subscribeLocked();
    else
        connectLocked();  // subscribes once connected
}

void PulseControl::subscribeLocked() {
    PulseLoop* loop = loop_.get();
    auto lost = lost_;
    // The observer runs on the loop thread; it reports a broken connection once.
    loop->setStateObserver([lost, reported = false](pa_context_state_t state) mutable {
        if (!reported && (state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED)) {
            reported = true;
            if (lost) lost();
        }
    });
    PulseLoop::Lock lock(*loop);
    pa_context_set_subscribe_callback(loop->context(), onEvent, &events_);
    const auto mask = static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SOURCE |
                                                          PA_SUBSCRIPTION_MASK_SERVER);
    loop->wait(pa_context_subscribe(loop->context(), mask, PulseLoop::signalCallback, loop));
}

}  // namespace parlova::pulse
