// Running gralloc-layout inside a test, as `gralloc-layout args...`, and reading what it wrote.
#pragma once

#include <gtest/gtest.h>
#include <json/json.h>

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "LayoutQuery.h"

namespace tooltest {

struct ToolRun {
    int code;
    std::string out, err;
};

// Runs the tool with `input` as its standard input.
inline ToolRun run(std::vector<std::string> args, const std::string& input = "") {
    args.insert(args.begin(), "gralloc-layout");
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    std::istringstream in(input);
    std::streambuf* savedInput = std::cin.rdbuf(in.rdbuf());
    std::ostringstream out, err;
    const int code =
            zyncam::tools::runLayoutQuery(static_cast<int>(args.size()), argv.data(), out, err);
    std::cin.rdbuf(savedInput);
    return {code, out.str(), err.str()};
}

inline Json::Value parseJson(const std::string& text) {
    Json::Value root;
    std::string errors;
    std::istringstream in(text);
    EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &root, &errors)) << errors;
    return root;
}

// The answers of a --json run, less what differs from run to run (the probe's time) and what
// says how the layout was reached (an exact answer or the rules).
inline Json::Value layoutsOf(const ToolRun& r) {
    Json::Value answers = parseJson(r.out)["answers"];
    for (Json::Value& answer : answers) {
        answer.removeMember("allocationTimeNs");
        answer.removeMember("layoutSource");
    }
    return answers;
}

}  // namespace tooltest
