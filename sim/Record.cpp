#include "sim/Record.h"

#include <cstdio>

namespace sim {

std::string jsonString(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (byte < 0x20 || byte >= 0x7F) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof(escaped), "\\u%04x", byte);
                    out += escaped;
                } else {
                    out += c;
                }
        }
    }
    out += '"';
    return out;
}

Record& Record::with(std::string name, std::string_view value) & {
    fields.push_back({std::move(name), std::string(value), true});
    return *this;
}

Record& Record::with(std::string name, int64_t value) & {
    fields.push_back({std::move(name), std::to_string(value), false});
    return *this;
}

Record& Record::withJson(std::string name, std::string json) & {
    fields.push_back({std::move(name), std::move(json), false});
    return *this;
}

std::string_view Record::field(std::string_view name) const {
    for (const Field& candidate : fields) {
        if (candidate.name == name) {
            return candidate.value;
        }
    }
    return {};
}

std::string Record::json() const {
    char time[32];
    std::snprintf(time, sizeof(time), "%.3f", t);
    std::string out = std::string("{\"t\":") + time + ",\"kind\":" + jsonString(kind);
    if (!socket.empty()) {
        out += ",\"socket\":" + jsonString(socket);
    }
    out += ",\"text\":" + jsonString(text);
    for (const Field& field : fields) {
        out += "," + jsonString(field.name) + ":";
        out += field.isText ? jsonString(field.value) : field.value;
    }
    return out + "}";
}

void Recorder::add(Record record) {
    const std::chrono::duration<double> t = std::chrono::steady_clock::now() - start_;
    record.t = t.count();
    pending_.push_back(std::move(record));
    if (delivering_) {
        return;
    }
    delivering_ = true;
    while (!pending_.empty()) {
        const Record next = std::move(pending_.front());
        pending_.pop_front();
        for (const Sink& sink : sinks_) {
            sink(next);
        }
    }
    delivering_ = false;
}

}  // namespace sim
