#include "os/StateTree.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <ctime>

namespace Ursa::OS {

namespace {

constexpr int64_t kMillisecond = 1'000'000;
constexpr size_t kIndent = 2;

/** The bytes of the UTF-8 character that begins `text`; 0 if it begins with none. */
size_t characterLength(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    const size_t length = first < 0x80   ? 1
                          : first < 0xC2 ? 0
                          : first < 0xE0 ? 2
                          : first < 0xF0 ? 3
                          : first < 0xF5 ? 4
                                         : 0;
    if (length == 0 || length > text.size()) {
        return 0;
    }
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const bool isOverlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
    const bool isSurrogate = first == 0xED && byte(1) >= 0xA0;
    const bool isTooLarge = first == 0xF4 && byte(1) >= 0x90;
    return isOverlong || isSurrogate || isTooLarge ? 0 : length;
}

void writeString(std::string& out, std::string_view text) {
    out += '"';
    while (!text.empty()) {
        const size_t length = characterLength(text);
        const char first = text.front();
        if (length == 0) {
            out += "\xEF\xBF\xBD";  // U+FFFD
        } else if (first == '"' || first == '\\') {
            out += {'\\', first};
        } else if (first == '\n') {
            out += "\\n";
        } else if (first == '\t') {
            out += "\\t";
        } else if (static_cast<unsigned char>(first) < 0x20 || first == 0x7F) {
            std::array<char, 8> escaped;
            snprintf(escaped.data(), escaped.size(), "\\u%04x", static_cast<unsigned>(first));
            out += escaped.data();
        } else {
            out += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    out += '"';
}

std::string timeOfDay(int64_t wallMs) {
    const auto seconds = static_cast<time_t>(wallMs / 1000);
    tm parts = {};
    gmtime_r(&seconds, &parts);
    std::array<char, 40> text;
    snprintf(text.data(), text.size(), "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min,
             parts.tm_sec, static_cast<int>(wallMs % 1000));
    return text.data();
}

}  // namespace

std::string durationText(int64_t ns) {
    std::array<char, 40> text;
    const double ms = static_cast<double>(ns) / static_cast<double>(kMillisecond);
    if (ms < 1000) {
        snprintf(text.data(), text.size(), "%.1f ms", ms);
    } else if (ms < 120'000) {
        snprintf(text.data(), text.size(), "%.1f s", ms / 1000);
    } else if (ms < 7'200'000) {
        snprintf(text.data(), text.size(), "%.0f min", ms / 60'000);
    } else {
        snprintf(text.data(), text.size(), "%.1f h", ms / 3'600'000);
    }
    return text.data();
}

std::string momentText(const Moment& moment, const Moment& now) {
    return moment ? durationText(now.monotonicNs - moment.monotonicNs) + " ago (" +
                        timeOfDay(moment.wallMs) + ")"
                  : "never";
}

std::string oneLine(std::string_view text) {
    while (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
    }
    std::string line;
    for (const char c : text) {
        if (c == '\n') {
            line += " / ";
        } else {
            line += static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? ' ' : c;
        }
    }
    return line;
}

StateTree& StateTree::set(std::string_view name, StateTree value) {
    return std::get<Parts>(value_).emplace_back(name, std::move(value)).second;
}

StateTree& StateTree::add(StateTree value) {
    return std::get<Elements>(value_).emplace_back(std::move(value));
}

std::string StateTree::json() const {
    std::string out;
    writeJson_(out, Moment::now());
    return out;
}

void StateTree::writeJson_(std::string& out, const Moment& now) const {
    if (const auto* flag = std::get_if<bool>(&value_)) {
        out += *flag ? "true" : "false";
    } else if (const auto* number = std::get_if<int64_t>(&value_)) {
        out += std::to_string(*number);
    } else if (const auto* text = std::get_if<std::string>(&value_)) {
        writeString(out, *text);
    } else if (const auto* moment = std::get_if<Moment>(&value_)) {
        const int64_t age = now.monotonicNs - moment->monotonicNs;
        out += "{\"agoMs\":" + std::to_string(age / kMillisecond) +
               ",\"monotonicMs\":" + std::to_string(moment->monotonicNs / kMillisecond) +
               ",\"wallMs\":" + std::to_string(moment->wallMs) + "}";
    } else if (const auto* elements = std::get_if<Elements>(&value_)) {
        out += '[';
        for (const StateTree& element : *elements) {
            out += &element == &elements->front() ? "" : ",";
            element.writeJson_(out, now);
        }
        out += ']';
    } else if (const auto* later = std::get_if<LaterElements>(&value_)) {
        out += '[';
        for (size_t i = 0; i < later->count; ++i) {
            out += i == 0 ? "" : ",";
            later->make(i).writeJson_(out, now);
        }
        out += ']';
    } else if (const auto* parts = std::get_if<Parts>(&value_)) {
        out += '{';
        for (const auto& part : *parts) {
            out += &part == &parts->front() ? "" : ",";
            writeString(out, part.first);
            out += ':';
            part.second.writeJson_(out, now);
        }
        out += '}';
    } else {
        out += "null";
    }
}

std::string StateTree::text() const {
    std::string out;
    const Moment now = Moment::now();
    if (const auto* parts = std::get_if<Parts>(&value_)) {
        for (const auto& [name, part] : *parts) {
            out += name + ":";
            part.writeText_(out, kIndent, now);
        }
    } else {
        out += shortText_(now) + "\n";
    }
    return out;
}

bool StateTree::isShort_() const {
    if (!line_.empty()) {
        return true;
    }
    if (const auto* elements = std::get_if<Elements>(&value_)) {
        for (const StateTree& element : *elements) {
            if (std::holds_alternative<Elements>(element.value_) ||
                std::holds_alternative<Parts>(element.value_) || !element.line_.empty()) {
                return false;
            }
        }
        return true;
    }
    if (const auto* later = std::get_if<LaterElements>(&value_)) {
        return later->count == 0;
    }
    const auto* parts = std::get_if<Parts>(&value_);
    return parts == nullptr || parts->empty();
}

std::string StateTree::shortText_(const Moment& now) const {
    if (!line_.empty()) {
        return oneLine(line_);
    }
    if (const auto* flag = std::get_if<bool>(&value_)) {
        return *flag ? "yes" : "no";
    }
    if (const auto* number = std::get_if<int64_t>(&value_)) {
        return std::to_string(*number);
    }
    if (const auto* text = std::get_if<std::string>(&value_)) {
        return oneLine(*text);
    }
    if (const auto* moment = std::get_if<Moment>(&value_)) {
        return momentText(*moment, now);
    }
    std::string out;
    if (const auto* elements = std::get_if<Elements>(&value_)) {
        for (const StateTree& element : *elements) {
            out += (out.empty() ? "" : ", ") + element.shortText_(now);
        }
    }
    return out.empty() ? "-" : out;
}

void StateTree::writeText_(std::string& out, size_t indent, const Moment& now) const {
    if (isShort_()) {
        out += " " + shortText_(now) + "\n";
        return;
    }
    out += "\n";
    const std::string space(indent, ' ');
    if (const auto* elements = std::get_if<Elements>(&value_)) {
        for (const StateTree& element : *elements) {
            out += space + "-";
            element.writeText_(out, indent + kIndent, now);
        }
    } else if (const auto* later = std::get_if<LaterElements>(&value_)) {
        for (size_t i = 0; i < later->count; ++i) {
            out += space + "-";
            later->make(i).writeText_(out, indent + kIndent, now);
        }
    } else if (const auto* parts = std::get_if<Parts>(&value_)) {
        for (const auto& [name, part] : *parts) {
            out += space + name + ":";
            part.writeText_(out, indent + kIndent, now);
        }
    }
}

}  // namespace Ursa::OS
