#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sim {

/** `text` as a JSON string with its quotes. A byte above 0x7F becomes \u00XX, so any bytes fit. */
std::string jsonString(std::string_view text);

/**
 * One thing that happened: `kind` says what ("event", "command", "netlink", ... see README.md),
 * `socket` where (empty when that says nothing), `text` its words. What else belongs to the kind
 * stands in `fields`.
 */
struct Record {
    Record(std::string kind_, std::string socket_, std::string text_)
        : kind(std::move(kind_)), socket(std::move(socket_)), text(std::move(text_)) {}
    Record(std::string kind_, std::string text_) : Record(std::move(kind_), "", std::move(text_)) {}

    Record& with(std::string name, std::string_view value) &;
    Record& with(std::string name, int64_t value) &;
    /** `json` is put in as it stands. */
    Record& withJson(std::string name, std::string json) &;
    template <typename T>
    Record&& with(std::string name, const T& value) && {
        with(std::move(name), value);
        return std::move(*this);
    }
    Record&& withJson(std::string name, std::string json) && {
        withJson(std::move(name), std::move(json));
        return std::move(*this);
    }
    /** A field's text, or its JSON where it isn't text; empty when there is none. */
    std::string_view field(std::string_view name) const;

    /** One line of JSON without the newline: t, kind, socket (if any), text, the fields. */
    std::string json() const;

    double t = 0;  ///< Seconds since the start; set by the recorder.
    std::string kind;
    std::string socket;
    std::string text;
    struct Field {
        std::string name;
        std::string value;
        bool isText;
    };
    std::vector<Field> fields;
    /** Part of something that is told in one line elsewhere: kept out of the timeline. */
    bool detail = false;
};

/** Stamps what happens with the time and hands it to everyone who listens. */
class Recorder {
  public:
    using Sink = std::function<void(const Record&)>;

    Recorder() : start_(std::chrono::steady_clock::now()) {}

    void addSink(Sink sink) { sinks_.push_back(std::move(sink)); }
    /** Time 0 is now. */
    void restartClock() { start_ = std::chrono::steady_clock::now(); }
    void add(Record record);

  private:
    std::chrono::steady_clock::time_point start_;
    std::vector<Sink> sinks_;
    /** Records made by a sink wait here until the one under way has reached every sink. */
    std::deque<Record> pending_;
    bool delivering_ = false;
};

}  // namespace sim
