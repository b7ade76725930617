// A parsed tree's content as one text, for comparing trees: two trees hold
// the same when their shapes are equal. Header only, so that the fuzz
// targets use it too; it walks without recursion, as deep trees need.
#pragma once

#include <qel/parsednode.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace qeltest
{

// Every node below `root` in order: its type, its identifier, a section's
// name entry, an entry's parameters, and where a root's children end.
// Texts carry their lengths, and null differs from empty.
inline std::string Shape(qel::ParsedRoot& root)
{
    std::string shape;
    auto text = [&shape](const char* t)
    { shape += t ? std::to_string(std::strlen(t)) + ":" + t : std::string("-"); };
    auto leaf = [&](const qel::ParsedNode& node)
    {
        shape += std::to_string(node.GetType());
        text(node.GetIdentifier());
        if (node.GetType() != qel::ParsedNode::EntryType)
            return;
        const qel::ParsedEntry& entry = static_cast<const qel::ParsedEntry&>(node);
        shape += "(" + std::to_string(entry.GetParameterCount()) + "|";
        for (qel::u32 i = 0; i < entry.GetParameterCount(); ++i)
            text(entry.GetParameter(i));
    };
    std::vector<std::pair<qel::ParsedRoot*, qel::u32>> levels{{&root, 0}};
    while (!levels.empty())
    {
        qel::ParsedRoot* at = levels.back().first;
        const qel::u32 next = levels.back().second++;
        if (next == at->GetChildCount())
        {
            shape += "}";
            levels.pop_back();
            continue;
        }
        qel::ParsedNode* child = at->GetChild(next);
        leaf(*child);
        if (child->GetType() != qel::ParsedNode::SectionType)
            continue;
        const qel::ParsedEntry* name = static_cast<qel::ParsedSection*>(child)->GetName();
        shape += name ? ":" : "{";
        if (name)
            leaf(*name);
        levels.emplace_back(static_cast<qel::ParsedRoot*>(child), 0);
    }
    return shape;
}

} // namespace qeltest
