#include "MeshMapping.h"

#include "Failure.h"
#include "Text.h"
#include "TextFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace rfm_tool
{
namespace
{
struct Key
{
    std::string_view name;
    std::string MeshMapping::*member;
};
constexpr Key kKeys[] = {{"nodes", &MeshMapping::nodes},       {"xyz", &MeshMapping::xyz},
                         {"ids", &MeshMapping::ids},           {"first", &MeshMapping::first},
                         {"elements", &MeshMapping::elements}, {"corners", &MeshMapping::corners},
                         {"cells", &MeshMapping::cells},       {"point-data", &MeshMapping::pointData},
                         {"cell-data", &MeshMapping::cellData}};

std::string_view Trimmed(std::string_view text)
{
    constexpr std::string_view kBlanks = " \t\r";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

[[noreturn]] void RefuseKey(const std::string& where, std::string_view name)
{
    std::vector<std::string_view> names;
    for (const Key& key : kKeys) names.push_back(key.name);
    const std::string_view near = NearestName(name, names);
    throw Failure(ExitUsage, where, OneLine(name) + ": a mesh has no such key",
                  near.empty() ? "docs/cli.md lists them" : fmt::format("did you mean {}=?", near));
}

// `where` is what a failure names.
void Take(MeshMapping& mapping, std::string_view text, const std::string& where)
{
    const std::size_t equals = text.find('=');
    const std::string_view value = equals == std::string_view::npos ? "" : Trimmed(text.substr(equals + 1));
    if (value.empty())
        throw Failure(ExitUsage, where, OneLine(text) + " is not KEY=VALUE", "say for example nodes=NODES");
    const std::string_view name = Trimmed(text.substr(0, equals));
    const Key* key =
        std::find_if(std::begin(kKeys), std::end(kKeys), [&](const Key& each) { return each.name == name; });
    if (key == std::end(kKeys)) RefuseKey(where, name);
    mapping.*(key->member) = value;
}

void TakeFile(MeshMapping& mapping, const std::string& path)
{
    constexpr std::size_t kLargest = 1 << 20;
    const std::vector<std::string> lines = Split(ReadTextFile(path, "a mapping", kLargest), '\n');
    for (std::size_t i = 0; i < lines.size(); ++i)
    {
        const std::string_view line = Trimmed(lines[i]);
        if (line.empty() || line.starts_with('#')) continue;
        Take(mapping, line, fmt::format("{}, line {}", OneLine(path), i + 1));
    }
}
} // namespace

MeshMapping ReadMeshMapping(const std::vector<std::string>& words, const std::string& path)
{
    MeshMapping mapping;
    if (!path.empty()) TakeFile(mapping, path);
    for (const std::string& word : words) Take(mapping, word, "--mesh");
    if (mapping.nodes.empty() || mapping.elements.empty())
        throw Failure(
            ExitUsage, "--to vtu", "the tables of nodes and elements are not given",
            "say --mesh nodes=TABLE --mesh elements=TABLE, or give a file of such lines with --map");
    return mapping;
}
} // namespace rfm_tool
