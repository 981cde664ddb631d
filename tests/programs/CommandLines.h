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
    int codeWhenSound = 0;   // on a sound database
    const char* object = ""; // the word among `words` that names an object

    bool MakesFile() const { return std::find(words.begin(), words.end(), "OUT") != words.end(); }
};
inline void PrintTo(const CommandLine& command, std::ostream* stream) { *stream << command.name; }

/// Those that read a database.
inline const CommandLine kCommandLines[] = {
    {"info", {"FILE"}},
    {"ls", {"FILE"}},
    {"schema", {"FILE"}},
    {"head", {"FILE", "4"}, 0, "4"},
    {"tail", {"FILE", "4"}, 0, "4"},
    {"rows", {"FILE", "4"}, 0, "4"},
    {"value", {"FILE", "4.id"}, 0, "4.id"},
    {"stats", {"FILE", "4"}, 0, "4"},
    {"follow", {"FILE", "4", "--timeout", "0"}, 5, "4"},
    {"plot", {"FILE", "4.id"}, 0, "4.id"},
    {"export", {"FILE", "4", "--to", "csv"}, 0, "4"},
    {"check", {"FILE"}},
    {"diff", {"FILE", "FILE"}},
    {"hash", {"FILE"}},
    {"convert", {"FILE", "OUT", "--to", "plain"}},
    {"compact", {"FILE", "OUT"}},
    {"copy", {"FILE", "OUT", "4"}, 0, "4"},
    {"recover", {"FILE", "OUT"}},
};

/// The others, given a file where they take something else.
inline const CommandLine kOtherCommandLines[] = {
    {"import", {"csv", "FILE", "OUT"}},
    {"import", {"syrthes", "FILE", "OUT"}},
    {"connect", {"start", "FILE"}},
    {"browse", {"FILE"}},
    {"get", {"FILE", "OUT"}},
    {"unlock", {"FILE"}},
    {"completion", {"FILE"}},
    {"help", {"FILE"}},
    {"doctor", {"FILE"}},
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
