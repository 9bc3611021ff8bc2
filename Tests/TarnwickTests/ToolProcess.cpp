#include "TarnwickTests/ToolProcess.hpp"

#include <gtest/gtest.h>

#include <regex>

namespace Tarnwick {

namespace {

using DHCPCore::TestSupport::ChildProcess;

ChildProcess::Setting childSetting(const ToolProcess::Setting& setting) {
    std::vector<std::string> words = setting.prefix;
    words.push_back(setting.tool.string());
    words.insert(words.end(), setting.arguments.begin(), setting.arguments.end());
    return {.words = std::move(words),
            .errorsInOutput = false,
            .outputClosed = setting.outputClosed,
            .outputFile = setting.outputFile,
            .homeOwner = setting.homeOwner};
}

} // namespace

ToolProcess::ToolProcess(const Setting& setting) : ChildProcess(childSetting(setting)) {}

Finished finish(ToolProcess& tool) {
    std::string output = tool.rest();
    const int status = tool.wait();
    return {.status = status, .output = std::move(output), .errors = tool.errors()};
}

Finished runTool(std::vector<std::string> arguments) {
    ToolProcess tool(std::move(arguments));
    return finish(tool);
}

std::string withoutTime(const std::string& line) {
    static const std::regex time(R"(\d\d:\d\d:\d\d\.\d\d\d  )");
    std::smatch match;
    if (!std::regex_search(line, match, time, std::regex_constants::match_continuous)) {
        ADD_FAILURE() << "no time at the start of: " << line;
        return line;
    }
    return match.suffix();
}

} // namespace Tarnwick
