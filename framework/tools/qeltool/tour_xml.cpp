// The markup document at work: `qeltool xml` checks documents and prints
// their element trees, and the tour's markup section searches and edits the
// sample scene.
#include "tour.h"

#include <qel/markupstl.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace qeltool
{

namespace
{

std::string S(const qel::MarkupSTL::String& s)
{
    return std::string(s.data(), s.size());
}

// Deeper elements are indented as this level and say their own, so that a
// document nested a million levels deep prints in lines of bounded length.
const int kIndentedLevels = 40;

// A text as it may stand on one line: control characters (line breaks
// included) as character references, and in an attribute value '&', '<'
// and '"' escaped as XML would write them.
std::string OneLine(const std::string& text, bool attribute)
{
    std::string line;
    for (char c : text)
    {
        if (static_cast<unsigned char>(c) < 0x20)
            line += "&#" + std::to_string(int(c)) + ';';
        else if (attribute && c == '&')
            line += "&amp;";
        else if (attribute && c == '<')
            line += "&lt;";
        else if (attribute && c == '"')
            line += "&quot;";
        else
            line += c;
    }
    return line;
}

// One element's line: the name, the attributes and the data of an element
// without children, indented two spaces a level.
void PrintLine(qel::MarkupSTL& doc, int depth)
{
    std::string line(std::size_t(depth < kIndentedLevels ? depth : kIndentedLevels) * 2, ' ');
    if (depth >= kIndentedLevels)
        line += "(level " + std::to_string(depth) + ") ";
    line += S(doc.GetTagName());
    for (qel::u32 i = 0;; ++i)
    {
        const std::string name = S(doc.GetAttributeName(i));
        if (name.empty())
            break;
        line += ' ' + name + "=\"" + OneLine(S(doc.GetAttribute(name.c_str())), true) + '"';
    }
    std::string data = S(doc.GetData());
    const std::size_t first = data.find_first_not_of(" \t\n");
    if (first != std::string::npos)
    {
        data = data.substr(first, data.find_last_not_of(" \t\n") - first + 1);
        for (char& c : data)
            if (c == '\n' || c == '\t')
                c = ' ';
        line += ": " + OneLine(data.size() > 60 ? data.substr(0, 57) + "..." : data, false);
    }
    std::printf("%s\n", line.c_str());
}

// The main element and everything under it, in document order. The walk
// goes through the document's own navigation, so depth costs no stack.
void PrintElement(qel::MarkupSTL& doc, int depth)
{
    int below = 0; // levels under the main element at the start
    for (;;)
    {
        PrintLine(doc, depth + below);
        doc.IntoElement();
        doc.ResetMainPosition();
        if (doc.FindElement())
        {
            ++below;
            continue;
        }
        // Back up to the next sibling, never past the element itself.
        doc.OutOfElement();
        for (;;)
        {
            if (below == 0)
                return;
            if (doc.FindElement())
                break;
            doc.OutOfElement();
            --below;
        }
    }
}

} // namespace

int XmlTree(int count, char** paths, bool strict)
{
    int status = 0;
    for (int i = 0; i < count; ++i)
    {
        qel::MarkupSTL doc;
        doc.SetStrict(strict);
        const std::string path = VirtualPath(paths[i]);
        if (!doc.Load(path.c_str()))
        {
            status = 1;
            const std::string reason = doc.GetErrorLine() == 0 ? WhyUnreadable(path) : "";
            if (!reason.empty())
                std::fprintf(stderr, "%s: %s\n", paths[i], reason.c_str());
            else if (doc.GetErrorLine() == 0)
                std::fprintf(stderr, "%s: %s\n", paths[i], doc.GetError());
            else
                std::fprintf(stderr, "%s:%u:%u: %s\n", paths[i], unsigned(doc.GetErrorLine()),
                             unsigned(doc.GetErrorColumn()), doc.GetError());
            continue;
        }
        if (count > 1)
            std::printf("%s:\n", paths[i]);
        if (doc.FindElement())
            PrintElement(doc, 0);
    }
    return status;
}

void TourMarkup(const TourContext& context)
{
    Banner("markup document");
    qel::MarkupSTL doc;
    const std::string path = VirtualPath(context.dataDir + "scene.xml");
    if (!doc.Load(path.c_str()))
    {
        std::printf("cannot load %s: %s\n", path.c_str(), doc.GetError());
        return;
    }
    std::printf("%s: %u elements\n", path.c_str(), unsigned(doc.GetElementCount()));
    doc.FindElement("scene");
    doc.IntoElement();
    while (doc.FindElement("object"))
    {
        if (S(doc.GetAttribute("class")) != "Lamp")
            continue;
        doc.FindChildElement("light");
        std::printf("  %-13s power %-3s light \"%s\"\n", S(doc.GetAttribute("name")).c_str(),
                    S(doc.GetChildAttribute("power")).c_str(), S(doc.GetChildData()).c_str());
        // Every lamp gets brighter, edited in place.
        const int power = std::atoi(S(doc.GetChildAttribute("power")).c_str());
        doc.SetChildAttribute("power", std::to_string(power + 15).c_str());
    }
    doc.AddElement("object");
    doc.SetAttribute("class", "Rug");
    doc.AddChildElement("colour", "red & gold");
    doc.ResetPosition();
    std::printf("after the edits:\n");
    if (doc.FindElement())
        PrintElement(doc, 1);
}

} // namespace qeltool
