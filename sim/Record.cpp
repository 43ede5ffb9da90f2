#include "sim/Record.h"

#include <cmath>

#include <nlohmann/json.hpp>

namespace sim {

Json jsonOf(std::string_view bytes) {
    std::string utf8;
    utf8.reserve(bytes.size());
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            utf8 += c;
        } else {
            utf8 += static_cast<char>(0xC0 | byte >> 6);
            utf8 += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return utf8;
}

std::string bytesOf(const Json& value) {
    if (!value.is_string()) {
        return lineOf(value);
    }
    const auto& utf8 = value.get_ref<const std::string&>();
    std::string bytes;
    bytes.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size(); ++i) {
        const auto byte = static_cast<unsigned char>(utf8[i]);
        const bool ofOurs = (byte == 0xC2 || byte == 0xC3) && i + 1 < utf8.size();
        bytes += ofOurs ? static_cast<char>((byte & 3) << 6 | (utf8[++i] & 0x3F)) : utf8[i];
    }
    return bytes;
}

std::string lineOf(const Json& value) { return value.dump(-1, ' ', true); }

Record& Record::with(const std::string& name, std::string_view value) & {
    return withJson(name, jsonOf(value));
}

Record& Record::with(const std::string& name, int64_t value) & {
    return withJson(name, Json(value));
}

Record& Record::withJson(const std::string& name, const Json& value) & {
    auto more = fields ? std::make_shared<Json>(*fields) : std::make_shared<Json>(Json::object());
    (*more)[name] = value;
    fields = std::move(more);
    return *this;
}

Record& Record::withNull(const std::string& name) & { return withJson(name, nullptr); }

std::string Record::field(const std::string& name) const {
    if (!fields || !fields->contains(name)) {
        return "";
    }
    return bytesOf((*fields)[name]);
}

std::string Record::json() const {
    constexpr double kPerSecond = 1000;
    Json line = {{"t", std::round(t * kPerSecond) / kPerSecond}, {"kind", jsonOf(kind)}};
    if (!socket.empty()) {
        line["socket"] = jsonOf(socket);
    }
    line["text"] = jsonOf(text);
    if (fields) {
        line.update(*fields);
    }
    return lineOf(line);
}

double Recorder::now() const {
    const std::chrono::duration<double> t = std::chrono::steady_clock::now() - start_;
    return t.count() * speed_;
}

void Recorder::add(Record record) {
    record.t = now();
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
