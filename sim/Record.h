#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace sim {

/** Keeps an object's members in order. */
using Json = nlohmann::ordered_json;

/** Any bytes as a JSON string: each stands as the character of its number. */
Json jsonOf(std::string_view bytes);
/** The bytes that jsonOf() was given; any other value as one line of JSON. */
std::string bytesOf(const Json& value);
/** One line of JSON, in ASCII. */
std::string lineOf(const Json& value);

/**
 * One thing that happened: `kind` says what ("event", "command", "netlink", ... see README.md),
 * `socket` where (empty when that says nothing), `text` its words. What else belongs to the kind
 * stands in `fields`.
 */
struct Record {
    Record(std::string ofKind, std::string onSocket, std::string words)
        : kind(std::move(ofKind)), socket(std::move(onSocket)), text(std::move(words)) {}
    Record(std::string ofKind, std::string words)
        : Record(std::move(ofKind), "", std::move(words)) {}

    Record& with(const std::string& name, std::string_view value) &;
    Record& with(const std::string& name, int64_t value) &;
    Record& withJson(const std::string& name, const Json& value) &;
    Record& withNull(const std::string& name) &;
    template <typename T>
    Record&& with(const std::string& name, const T& value) && {
        with(name, value);
        return std::move(*this);
    }
    /** A field as bytesOf() gives it; empty when there is none. */
    std::string field(const std::string& name) const;

    /** One line of JSON without the newline: t, kind, socket (if any), text, the fields. */
    std::string json() const;

    double t = 0;  ///< Seconds since the start; set by the recorder.
    std::string kind;
    std::string socket;
    std::string text;
    /** A JSON object, shared with copies of the record; null when there is none. */
    std::shared_ptr<const Json> fields;
};

/** Stamps what happens with the time and hands it to everyone who listens. */
class Recorder {
  public:
    using Sink = std::function<void(const Record&)>;

    Recorder() : start_(std::chrono::steady_clock::now()) {}

    void addSink(Sink sink) { sinks_.push_back(std::move(sink)); }
    /** From now on, how many seconds it counts in one of the clock's. */
    void setSpeed(double speed) { speed_ = speed; }
    /** The time that a record would have. */
    double now() const;
    /** Time 0 is now. */
    void restartClock() { start_ = std::chrono::steady_clock::now(); }
    void add(Record record);

  private:
    std::chrono::steady_clock::time_point start_;
    double speed_ = 1;
    std::vector<Sink> sinks_;
    /** Records made by a sink wait here until the one under way has reached every sink. */
    std::deque<Record> pending_;
    bool delivering_ = false;
};

}  // namespace sim
