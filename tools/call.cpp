#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "tools/correspondent.h"
#include "tools/failure.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {
namespace {

constexpr std::chrono::milliseconds usualPatience(10000);

using Milliseconds = std::chrono::duration<double, std::milli>;

void showAsJson(const std::string& from, const Letter& answer, Milliseconds took) {
    nlohmann::ordered_json json;
    json["from"] = from;
    json["number"] = answer.number;
    json["size"] = answer.payload.size();
    json["data"] = hexadecimal(answer.payload);
    json["milliseconds"] = took.count();
    printJson(json);
}

/// As hexadecimal dumps are: what is text can be read beside it.
void showAsText(const std::string& from, const Letter& answer, Milliseconds took) {
    constexpr size_t perLine = 16;
    char time[32];
    std::snprintf(time, sizeof time, "%.3f ms", took.count());
    printLine(std::to_string(answer.number) + " from " + printable(from) + ", " +
              std::to_string(answer.payload.size()) + " bytes, after " + time);
    for (size_t at = 0; at < answer.payload.size(); at += perLine) {
        std::string bytes;
        std::string text;
        for (size_t i = at; i < std::min(at + perLine, answer.payload.size()); ++i) {
            const unsigned char byte = answer.payload[i];
            bytes += hexadecimal(Bytes{byte}) + " ";
            text += byte >= 0x20 && byte < 0x7f ? static_cast<char>(byte) : '.';
        }
        char offset[24];
        std::snprintf(offset, sizeof offset, "%06zx", at);
        printLine(std::string(offset) + "  " + bytes + std::string(3 * perLine - bytes.size(), ' ') + " " + text);
    }
}

}  // namespace

int call(const Options& options, const CallOptions& what) {
    const SendOptions& request = what.request;
    const Bytes payload = payloadFrom(request.payload);
    const uint32_t ended = endedBeside(what.reply);
    Correspondent self(options);
    const LinxSpid server = self.require(request.name, options);
    self.supervise(server, ended);
    const auto start = std::chrono::steady_clock::now();
    self.send(server, request.number, payload);
    const std::optional<Letter> answer = self.receive(what.reply, ended, options.timeout.value_or(usualPatience));
    const Milliseconds took = std::chrono::steady_clock::now() - start;
    if (!answer) throw Failure(timedOut, "'" + printable(request.name) + "' has not answered in time");
    if (answer->number == ended) throw Failure(refused, "'" + printable(request.name) + "' ended before it answered");
    (options.json ? showAsJson : showAsText)(self.nameOf(answer->sender), *answer, took);
    return done;
}

}  // namespace tools
