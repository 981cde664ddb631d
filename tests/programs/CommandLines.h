#pragma once

// Every command of the tool, as it is asked for its plainest work. A new command is one line here, and takes part in
// all that is tested of every command: help, bad files, bad outputs.

#include "ToolRunner.h"

#include <algorithm>
#include <ostream>
#include <string>

struct CommandLine
{
    const char* name;
    Tool::Words words;       // behind the name; FILE and OUT stand for paths
    int codeWhenDamaged = 4; // on a damaged database
    int codeWhenSound = 0;   // on a sound one
    bool writesData = true;  // to standard output, on a sound file
    const char* object = ""; // the word among `words` that names an object
};
inline void PrintTo(const CommandLine& command, std::ostream* stream) { *stream << command.name; }

inline const CommandLine kCommandLines[] = {
    {"info", {"FILE"}},
    {"ls", {"FILE"}},
    {"schema", {"FILE"}},
    {"head", {"FILE", "4"}, 4, 0, true, "4"},
    {"tail", {"FILE", "4"}, 4, 0, true, "4"},
    {"rows", {"FILE", "4"}, 4, 0, true, "4"},
    {"value", {"FILE", "4.id"}, 4, 0, true, "4.id"},
    {"stats", {"FILE", "4"}, 4, 0, true, "4"},
    {"follow", {"FILE", "4", "--timeout", "0"}, 4, 5, true, "4"},
    {"plot", {"FILE", "4.id"}, 4, 0, true, "4.id"},
    {"export", {"FILE", "4", "--to", "csv"}, 4, 0, true, "4"},
    {"check", {"FILE"}, 1},
    {"hash", {"FILE"}},
    {"convert", {"FILE", "OUT", "--to", "plain"}, 4, 0, false},
    {"compact", {"FILE", "OUT"}, 4, 0, false},
};

/// The words to run, with the paths in their places, and another object when one is given.
inline Tool::Words WordsOf(const CommandLine& command, const std::string& file, const std::string& out,
                           const std::string& object = "")
{
    Tool::Words words = command.words;
    std::replace(words.begin(), words.end(), std::string("FILE"), file);
    std::replace(words.begin(), words.end(), std::string("OUT"), out);
    if (!object.empty()) std::replace(words.begin(), words.end(), std::string(command.object), object);
    words.insert(words.begin(), command.name);
    return words;
}
