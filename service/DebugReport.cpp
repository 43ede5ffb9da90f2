#include "service/DebugReport.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>

#include "client/CorvidWifiClient.h"
#include "client/History.h"
#include "client/SlowTasks.h"
#include "client/Task.h"
#include "config/CorvidWifiProperties.h"
#include "config/FeatureList.h"
#include "managers/FeatureManager.h"
#include "service/BuildInfo.h"
#include "service/CorvidWifiManager.h"
#include "service/ProcessFigures.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr int64_t kMicrosecond = 1000;
constexpr int64_t kMillisecond = 1'000'000;

const char* toString(HistoryKind kind) {
    switch (kind) {
        case HistoryKind::State:
            return "state";
        case HistoryKind::Event:
            return "event";
        case HistoryKind::Command:
            return "command";
        case HistoryKind::Netlink:
            return "netlink";
    }
    return "";
}

const char* toString(PropertyEffect effect) {
    switch (effect) {
        case PropertyEffect::Restart:
            return "at restart";
        case PropertyEffect::FirstUse:
            return "at first use";
        case PropertyEffect::AtOnce:
            return "at once";
        case PropertyEffect::Both:
            return "at once, if its feature was on at the start";
    }
    return "";
}

const char* toString(PropertyType type) {
    switch (type) {
        case PropertyType::Bool:
            return "bool";
        case PropertyType::Int:
            return "int";
        case PropertyType::Unsigned:
            return "unsigned";
    }
    return "";
}

StateTree valueOf(PropertyType type, int64_t value) {
    return type == PropertyType::Bool ? StateTree(value != 0) : StateTree(value);
}

std::string textOf(PropertyType type, int64_t value) {
    return type == PropertyType::Bool ? (value != 0 ? "true" : "false") : std::to_string(value);
}

const char* originOf(const PropertyState& property) {
    return property.isMalformed() ? "malformed: default used" : property.set ? "set" : "default";
}

StateTree toState(const PropertyState& property) {
    StateTree state = StateTree::parts();
    state.set("name", property.name);
    state.set("type", toString(property.type));
    state.set("default", valueOf(property.type, property.fallback));
    state.set("set", property.set);
    state.set("value", valueOf(property.type, property.value()));
    state.set("origin", originOf(property));
    state.set("takesEffect", toString(property.effect));
    state.set("inForce",
              property.inForce ? valueOf(property.type, *property.inForce) : StateTree());
    state.set("description", property.meaning);
    if (property.type != PropertyType::Bool) {
        state.set("lowest", property.range.lowest);
        state.set("highest", property.range.highest);
        state.set("otherwise", property.range.otherwise);
    }

    std::string line = std::string(property.name) + " = " + textOf(property.type, property.value());
    line += property.isMalformed() ? " (\"" + *property.set + "\" is malformed: default used)"
            : property.set         ? " (set)"
                                   : " (default)";
    if (property.inForce && *property.inForce != property.value()) {
        line += ", in force is " + textOf(property.type, *property.inForce) + " until a restart";
    }
    return state.asLine(line + ", takes effect " + toString(property.effect));
}

/** A feature's switch with the value that it had at the daemon's start. */
StateTree toState(const PropertyState& property, bool valueAtStart) {
    const bool isChanged = (property.value() != 0) != valueAtStart;
    const char* const value = valueAtStart ? "true" : "false";
    // Only a property that is set can be true. Where a false one came from is not known any more.
    const StateTree origin = !isChanged     ? StateTree(originOf(property))
                             : valueAtStart ? StateTree("set")
                                            : StateTree();
    StateTree state = StateTree::parts();
    state.set("name", property.name);
    state.set("value", valueAtStart);
    state.set("origin", origin);
    state.set("changedTo", isChanged ? StateTree(!valueAtStart) : StateTree());
    const std::string line = std::string(property.name) + " = " + value;
    return state.asLine(isChanged ? line + " at the start, since changed: it counts at a restart"
                                  : line + " (" + originOf(property) + ")");
}

/**
 * The switches that made a feature on or off: of one that is on the first that was true, of one
 * that is off all. The value at the start of a switch that is read each time is what it is now.
 */
StateTree deciding(const FeatureInfo& info, bool isOn,
                   const std::vector<PropertyState>& properties) {
    StateTree all = StateTree::list();
    for (const FeatureInfo::Switch entry : info.switches) {
        if (entry == nullptr) {
            continue;
        }
        const auto property =
            std::find_if(properties.begin(), properties.end(), [&](const PropertyState& state) {
                return std::string_view(state.name) == entry->name;
            });
        const bool wasTrue = isOn && property->inForce.value_or(0) != 0;
        if (wasTrue) {
            StateTree one = StateTree::list();
            one.add(toState(*property, true));
            return one;
        }
        all.add(toState(*property, false));
    }
    return all;
}

StateTree toState(const HistoryEntry& entry, uint64_t sequence) {
    const bool isCommand = entry.outcome != CommandOutcome::None;
    std::string text(entry.text());
    if (!isCommand && entry.replyLength > 0) {
        text += " " + std::string(entry.reply());
    }
    Moment first = entry.at;
    first.monotonicNs -= entry.sinceFirstMs * kMillisecond;
    first.wallMs -= entry.sinceFirstMs;

    StateTree state = StateTree::parts();
    state.set("sequence", sequence);
    state.set("kind", toString(entry.kind));
    state.set("at", entry.at);
    state.set("interface", toString(entry.interfaceType));
    state.set("by", entry.task != nullptr ? StateTree(entry.task->name()) : StateTree());
    state.set("thread", entry.thread);
    state.set("text", text);
    state.set("outcome", isCommand ? StateTree(toString(entry.outcome)) : StateTree());
    state.set("reply", isCommand ? StateTree(entry.reply()) : StateTree());
    state.set("durationUs", isCommand ? StateTree(entry.durationUs) : StateTree());
    state.set("repeats", entry.repeats);
    state.set("first", first);

    std::string line = momentText(entry.at) + "  " + toString(entry.interfaceType) + " " +
                       toString(entry.kind) + "  " + text;
    if (isCommand) {
        line += "  -> " + (entry.isAnswered() ? std::string(entry.reply())
                                              : std::string(toString(entry.outcome)));
        line += ", " + durationText(entry.durationUs * kMicrosecond);
    }
    if (entry.task != nullptr) {
        line += ", by " + entry.task->name();
    }
    if (entry.repeats > 1) {
        line += ", " + std::to_string(entry.repeats) + " times in " +
                durationText(entry.sinceFirstMs * kMillisecond);
    }
    return state.asLine(std::move(line));
}

StateTree toState(const RunningTask& running) {
    StateTree state = StateTree::parts();
    state.set("task", running.task->name());
    state.set("thread", running.thread);
    state.set("since", Moment::fromMonotonic(running.sinceNs));
    return state.asLine(running.task->name() + " on thread " + std::to_string(running.thread) +
                        ", since " + momentText(Moment::fromMonotonic(running.sinceNs)));
}

}  // namespace

DebugReport::DebugReport(CorvidWifiClient& client, const CorvidWifiManager& managers)
    : client_(client), managers_(managers) {}

const std::vector<DebugReport::Section>& DebugReport::sections_() {
    static const std::vector<Section> sections = {
        {"sta", "features of the station", &DebugReport::sta_},
        {"p2p", "features of the P2P group", &DebugReport::p2p_},
        {"power", "transmit power control", &DebugReport::power_},
        {"coex", "coexistence: controllers and camera", &DebugReport::coex_},
        {"sockets", "the supplicant's control sockets", &DebugReport::sockets_},
        {"netlink", "requests to nl80211", &DebugReport::netlink_},
        {"clients", "registered clients and their callbacks", &DebugReport::clients_},
        {"properties", "system properties, what is set and what is in force",
         &DebugReport::properties_},
        {"history", "the last state changes, events and commands", &DebugReport::history_},
        {"threads", "threads, descriptors, memory", &DebugReport::threads_},
    };
    return sections;
}

std::string DebugReport::help() {
    std::string text =
        "options: [--json] [NAME ...]\n"
        "  --json      one JSON object\n"
        "  --help      this\n"
        "names, all of them without any:\n";
    for (const Section& section : sections_()) {
        std::string name = section.name;
        name.resize(std::max<size_t>(name.size(), 10), ' ');
        text += "  " + name + "  " + section.content + "\n";
    }
    return text;
}

void DebugReport::write(const std::vector<std::string>& options, const Sink& sink) const {
    bool isJson = false;
    std::vector<std::string> names;
    for (const std::string& option : options) {
        const auto isName = [&](const Section& section) { return option == section.name; };
        if (option == "--help") {
            sink(help());
            return;
        }
        if (option == "--json") {
            isJson = true;
        } else if (std::any_of(sections_().begin(), sections_().end(), isName)) {
            names.push_back(option);
        } else {
            sink("unknown option \"" + oneLine(option.substr(0, 100)) + "\"\n" + help());
            return;
        }
    }
    std::vector<Section> wanted = {{"schema", "", &DebugReport::schema_},
                                   {"build", "", &DebugReport::build_},
                                   {"process", "", &DebugReport::process_}};
    std::copy_if(sections_().begin(), sections_().end(), std::back_inserter(wanted),
                 [&](const Section& section) {
                     return names.empty() ||
                            std::find(names.begin(), names.end(), section.name) != names.end();
                 });
    for (size_t i = 0; i < wanted.size(); ++i) {
        StateTree state = StateTree::parts();
        state.set(wanted[i].name, (this->*wanted[i].describe)());
        std::string piece = isJson ? state.json() : state.text();
        if (isJson) {
            // The braces of one object around all of them.
            piece.front() = i == 0 ? '{' : ',';
            piece.resize(piece.size() - 1);
            piece += i + 1 < wanted.size() ? "" : "}\n";
        }
        if (!sink(piece)) {
            return;
        }
    }
}

StateTree DebugReport::build_() const {
    const BuildInfo info = BuildInfo::ofProcess();
    StateTree build = StateTree::parts();
    build.set("version", info.version);
    build.set("commit", info.commit);
    build.set("platform", info.platform);
    return build;
}

StateTree DebugReport::process_() const {
    StateTree process = StateTree::parts();
    process.set("pid", getpid());
    process.set("started", started_);
    process.set("uptimeMs", (Moment::monotonicNow() - started_.monotonicNs) / kMillisecond);
    return process;
}

StateTree DebugReport::features_(std::string_view section) const {
    const std::vector<PropertyState> properties = Sysprop::readStates();
    StateTree features = StateTree::parts();
    for (size_t number = 0; number < kFeatureTable.size(); ++number) {
        if (kFeatureTable[number].section == section) {
            features.set(kFeatureTable[number].managerName, feature_(number, properties));
        }
    }
    return features;
}

StateTree DebugReport::feature_(size_t number, const std::vector<PropertyState>& properties) const {
    const FeatureInfo& info = kFeatureTable[number];
    const std::shared_ptr<FeatureManager> manager = managers_.feature(number);
    StateTree feature = StateTree::parts();
    feature.set("enabled", manager != nullptr);
    StateTree& switches = feature.set("switches", StateTree::list());
    for (const FeatureInfo::Switch entry : info.switches) {
        if (entry != nullptr) {
            switches.add(entry->name);
        }
    }
    feature.set("decidedBy", deciding(info, manager != nullptr, properties));
    if (manager == nullptr) {
        feature.set("state", {});
        feature.set("running", {});
        feature.set("lastCommand", {});
        return feature;
    }
    feature.set("state", manager->describe());
    StateTree& running = feature.set("running", {});
    for (const RunningTask& task : runningTasks()) {
        if (task.task->ownerName() == info.managerName) {
            running = toState(task);
        }
    }
    const std::optional<HistoryEntry> last = client_.history().lastCommandOf(info.managerName);
    feature.set("lastCommand", last ? Wifi::toState(*last) : StateTree());
    return feature;
}

StateTree DebugReport::sockets_() const { return client_.describeSockets(); }

StateTree DebugReport::netlink_() const { return client_.describeNetlink(); }

StateTree DebugReport::clients_() const { return managers_.describeClients(); }

StateTree DebugReport::properties_() const {
    const auto properties =
        std::make_shared<const std::vector<PropertyState>>(Sysprop::readStates());
    return StateTree::list(properties->size(),
                           [properties](size_t i) { return toState((*properties)[i]); });
}

StateTree DebugReport::history_() const {
    const auto copy = std::make_shared<const History::Copy>(client_.history().copy());
    const size_t count = copy->entries.size();
    StateTree history = StateTree::parts();
    history.set("capacity", History::kCapacity);
    history.set("total", copy->total);
    history.set("entries", StateTree::list(count, [copy, count](size_t i) {
                    return toState(copy->entries[i], copy->total - count + i + 1);
                }));
    return history;
}

StateTree DebugReport::threads_() const {
    const ProcessFigures figures = ProcessFigures::read();
    const std::vector<RunningTask> running = runningTasks();
    StateTree state = StateTree::parts();
    StateTree& threads = state.set("threads", StateTree::list());
    for (const ProcessFigures::Thread& thread : figures.threads) {
        StateTree& entry = threads.add(StateTree::parts());
        entry.set("id", thread.id);
        entry.set("name", thread.name);
        StateTree& task = entry.set("task", {});
        std::string line = std::to_string(thread.id) + " " + thread.name;
        for (const RunningTask& candidate : running) {
            if (candidate.thread == thread.id) {
                task = candidate.task->name();
                line += ": " + candidate.task->name();
            }
        }
        entry.asLine(std::move(line));
    }
    state.set("count", figures.threads.size());
    state.set("descriptors", figures.descriptors);
    state.set("descriptorLimit", figures.descriptorLimit);
    state.set("rssKb", figures.residentKb);
    state.set("anonymousKb", figures.anonymousKb);
    StateTree& tasks = state.set("tasks", StateTree::parts());
    for (const auto& [task, thread] : managers_.copyTaskToPidMap()) {
        tasks.set(task, thread);
    }
    state.set("pending", client_.describePending());
    StateTree& slow = state.set("slow", StateTree::list());
    for (const SlowTasks::Entry& entry : SlowTasks::ofProcess().entries()) {
        const char* const kind =
            entry.kind == SlowTasks::Kind::Subscriber ? "subscriber" : "callback";
        StateTree& part = slow.add(StateTree::parts());
        part.set("kind", kind);
        part.set("who", entry.name());
        part.set("count", entry.count);
        part.set("longestMs", entry.longestNs / kMillisecond);
        part.set("last", entry.last);
        part.asLine(std::string(kind) + " " + std::string(entry.name()) + ": " +
                    std::to_string(entry.count) + " times, " + durationText(entry.longestNs) +
                    " at most, the last " + momentText(entry.last));
    }
    return state;
}

}  // namespace Ursa::OS::Wifi
