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

// The main element and everything under it, two spaces a level: the name,
// the attributes and the data of an element without children.
void PrintElement(qel::MarkupSTL& doc, int depth)
{
    std::string line(std::size_t(depth) * 2, ' ');
    line += S(doc.GetTagName());
    for (qel::u32 i = 0;; ++i)
    {
        const std::string name = S(doc.GetAttributeName(i));
        if (name.empty())
            break;
        line += ' ' + name + "=\"" + S(doc.GetAttribute(name.c_str())) + '"';
    }
    std::string data = S(doc.GetData());
    const std::size_t first = data.find_first_not_of(" \t\n");
    if (first != std::string::npos)
    {
        data = data.substr(first, data.find_last_not_of(" \t\n") - first + 1);
        for (char& c : data)
            if (c == '\n' || c == '\t')
                c = ' ';
        line += ": " + (data.size() > 60 ? data.substr(0, 57) + "..." : data);
    }
    std::printf("%s\n", line.c_str());
    doc.IntoElement();
    doc.ResetMainPosition();
    while (doc.FindElement())
        PrintElement(doc, depth + 1);
    doc.OutOfElement();
}

} // namespace

int XmlTree(int count, char** paths)
{
    int status = count > 0 ? 0 : 2;
    if (count == 0)
        std::fprintf(stderr, "qeltool xml: no file given\n");
    for (int i = 0; i < count; ++i)
    {
        qel::MarkupSTL doc;
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
