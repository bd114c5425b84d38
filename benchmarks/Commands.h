#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

/// What a program does at a word on its standard input, with the words that come after it in the line.
using Command = std::function<void(const std::vector<std::string> &words)>;

/// Runs GLib's main loop, as a host does, and in it the commands, each a line on standard input. After each
/// the line "done" says that it has been carried out. Returns the program's exit code after "quit" or at the
/// input's end; 1 for what is no command. All programs have these commands: "loop" tells the processor time
/// of the main thread, in microseconds, since the commands of the last line ended; "memory" tells the KiB
/// that the process has for itself, without the pages of files, and the bytes that are allocated; "empty"
/// empties the caches.
int obey(const std::map<std::string, Command> &commands);

/// Prints a figure, "name value" in a line, to be read by script/bench.
void tell(const std::string &name, double value);

/// Prints the processor time that the process has taken so far, in microseconds.
void tellProcessorTime();

/// How long that takes by a clock, in microseconds.
double microseconds(int clock, const std::function<void()> &call);

/// Leaves nothing of the program in the processor's caches, as after minutes in which others have run.
void emptyCaches();

/// Does it where system calls are listed between two marks with that name: "begin NAME" and "end NAME", each
/// a file that is looked for in vain.
void marked(const std::string &name, const std::function<void()> &call);
