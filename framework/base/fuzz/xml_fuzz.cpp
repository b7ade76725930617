// The XML classes on any bytes. The first byte picks the class:
// - even: XMLReader reads a structure of every value type, array form and
//   string from the rest; a document that does not hold it raises
//   XMLFormatError, which is an outcome and not a crash. When the byte is
//   2 modulo 4, the structure lies inside as many blocks named "b" as the
//   root's start tag is followed by "<b>" tags: deep documents.
// - odd: MarkupSTL checks the rest. A well-formed document is walked whole
//   (names, data, attributes), then edited (attributes set, data set,
//   elements added and removed); the edited text must still be well-formed
//   and hold, loaded afresh, as many elements as the edited index says.
#include <qel/inputbufferstream.h>
#include <qel/markupstl.h>
#include <qel/xmlreader.h>

#include "fuzzhost.h"
#include "readall.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

namespace
{

// The number of "<b>" tags right after the start tag of the root.
std::size_t Depth(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::size_t at = text.find('>', text.find("<qel"));
    std::size_t depth = 0;
    while (at != std::string_view::npos && text.compare(at + 1, 3, "<b>") == 0)
        ++depth, at += 3;
    return depth;
}

void ReadXml(const std::uint8_t* data, std::size_t size, bool nested)
{
    qel::InputBufferStream stream(data, data + size);
    qel::XMLReader reader(&stream, size);
    const std::size_t depth = nested ? Depth(data, size) : 0;
    try
    {
        for (std::size_t i = 0; i < depth; ++i)
            reader.Identify("b"), reader.Begin();
        qelfuzz::ReadAll(reader);
        for (std::size_t i = 0; i < depth; ++i)
            reader.End();
        reader.Finish();
    }
    catch (const qel::XMLFormatError&)
    {
    }
}

// Walks the main element and what it holds in document order, through the
// document's navigation (no recursion: the corpus holds deep documents);
// returns the number of elements.
qel::u32 Walk(qel::MarkupSTL& doc)
{
    qel::u32 count = 0;
    int below = 0;
    for (;;)
    {
        ++count;
        doc.GetData();
        for (qel::u32 i = 0; i < 8; ++i)
        {
            const qel::MarkupSTL::String name = doc.GetAttributeName(i);
            if (name.empty())
                break;
            doc.GetAttribute(name.c_str());
        }
        doc.IntoElement();
        doc.ResetMainPosition();
        if (doc.FindElement())
        {
            ++below;
            continue;
        }
        doc.OutOfElement();
        for (;;)
        {
            if (below == 0)
                return count;
            if (doc.FindElement())
                break;
            doc.OutOfElement();
            --below;
        }
    }
}

void EditMarkup(const std::uint8_t* data, std::size_t size)
{
    qel::MarkupSTL doc;
    if (!doc.SetDocument(reinterpret_cast<const char*>(data), qel::u32(size)) || !doc.FindElement())
        return;
    if (Walk(doc) != doc.GetElementCount())
        std::abort();
    // Edits chosen by the document's own bytes.
    doc.ResetPosition();
    doc.FindElement();
    doc.SetAttribute("seen", "a<b&\"c\"");
    doc.IntoElement();
    for (std::size_t i = 0; i < size && i < 16; ++i)
    {
        switch (data[i] % 6)
        {
        case 0:
            doc.FindElement();
            break;
        case 1:
            doc.AddElement("added", "x]]>y");
            break;
        case 2:
            doc.InsertElement("inserted");
            break;
        case 3:
            doc.SetData("new & data");
            break;
        case 4:
            doc.RemoveElement();
            break;
        default:
            doc.AddChildElement("child", "c");
            break;
        }
    }
    // The text comes back as UTF-8 with the declaration it came with: only
    // a UTF-8 document's text is a document again as it stands.
    qel::MarkupSTL fresh;
    if (std::strcmp(doc.GetEncoding(), "UTF-8") == 0 &&
        (!fresh.SetDocument(doc.GetDocument().data(), qel::u32(doc.GetDocument().size())) ||
         fresh.GetElementCount() != doc.GetElementCount()))
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    qelfuzz::QuietHost::Install();
    if (size == 0)
        return 0;
    if (data[0] % 2 == 0)
        ReadXml(data + 1, size - 1, data[0] % 4 == 2);
    else
        EditMarkup(data + 1, size - 1);
    return 0;
}
