#pragma once

#include <functional>
#include <string>

/// Runs this program again as a child process with `--child`, and returns what the child printed. Exits with
/// a message when the child cannot be run or fails.
std::string outputOfChild();

/// Runs `parent` or, in a child process, `child`.
int runParentOrChild(int argc, char **argv, const std::function<void(int count)> &parent,
                     const std::function<void()> &child, int defaultCount);
