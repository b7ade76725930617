// The XML classes beside pugixml on the same data, in the same run.
//
// Records: one million small records (an id, a position of three floats
// and a short name) written through XMLWriter into memory and read back
// through XMLReader, against pugixml building the same document, saving it
// to memory, and loading it and walking its records back into structures.
//
// Markup: a generated document of about 10 MB loaded (copied and checked;
// MarkupSTL also indexes it, pugixml builds its DOM) into one document
// again and again, as a program that reloads does (each side drops the
// previous content in its own way), and into a fresh document each time
// (fresh:1, its destruction timed: the memory each side then meets is what
// its allocator hands back); searched (every lamp whose power is "60", over
// the whole tree) and edited (an attribute set on 100 elements, 100
// elements added: the edits alone timed), against pugixml doing the same.
#include <qel/inputmemorystream.h>
#include <qel/markupstl.h>
#include <qel/outputmemorystream.h>
#include <qel/xmlreader.h>
#include <qel/xmlwriter.h>

#include <benchmark/benchmark.h>

#include <pugixml.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace
{

const int kRecords = 1000000;

struct Record
{
    qel::u32 id = 0;
    float position[3] = {};
    char name[16] = {};

    void Serialize(qel::Serializer& s)
    {
        s.Identify("record");
        s.Begin();
        s.Identify("id");
        s.Serialize(id);
        s.Identify("position");
        s.Serialize(position, 3, sizeof(float));
        s.Identify("name");
        if (s.IsWriting())
            qel::WriteString(s, name);
        else
            qel::ReadString(s, name, sizeof name);
        s.End();
    }
};

std::vector<Record>& Records()
{
    static std::vector<Record> records = []
    {
        std::vector<Record> made(kRecords);
        for (int i = 0; i < kRecords; ++i)
        {
            made[i].id = qel::u32(i);
            made[i].position[0] = float(i) * 0.25f;
            made[i].position[1] = -1.5f;
            made[i].position[2] = float(i % 1000) / 7.0f;
            std::snprintf(made[i].name, sizeof made[i].name, "item %d", i % 10000);
        }
        return made;
    }();
    return records;
}

std::string WriteOurs()
{
    qel::OutputMemoryStream stream;
    {
        qel::XMLWriter writer(&stream);
        for (Record& record : Records())
            record.Serialize(writer);
    }
    stream.Flush();
    qel::u32 size = 0;
    const unsigned char* data = stream.GetBuffer(size);
    return std::string(reinterpret_cast<const char*>(data), size);
}

struct StringWriter : pugi::xml_writer
{
    std::string text;
    void write(const void* data, size_t size) override
    {
        text.append(static_cast<const char*>(data), size);
    }
};

std::string WritePugi()
{
    pugi::xml_document document;
    pugi::xml_node root = document.append_child("qel");
    char buffer[64];
    for (const Record& record : Records())
    {
        pugi::xml_node node = root.append_child("record");
        node.append_child("id").text().set(record.id);
        std::snprintf(buffer, sizeof buffer, "%.10g %.10g %.10g", double(record.position[0]),
                      double(record.position[1]), double(record.position[2]));
        node.append_child("position").text().set(buffer);
        node.append_child("name").text().set(record.name);
    }
    StringWriter writer;
    document.save(writer, "    ");
    return writer.text;
}

void BM_RecordsWriteXMLWriter(benchmark::State& state)
{
    Records();
    for (auto _ : state)
        benchmark::DoNotOptimize(WriteOurs().size());
    state.SetItemsProcessed(int64_t(state.iterations()) * kRecords);
}
BENCHMARK(BM_RecordsWriteXMLWriter)->Unit(benchmark::kMillisecond);

void BM_RecordsWritePugixml(benchmark::State& state)
{
    Records();
    for (auto _ : state)
        benchmark::DoNotOptimize(WritePugi().size());
    state.SetItemsProcessed(int64_t(state.iterations()) * kRecords);
}
BENCHMARK(BM_RecordsWritePugixml)->Unit(benchmark::kMillisecond);

void BM_RecordsReadXMLReader(benchmark::State& state)
{
    const std::string document = WriteOurs();
    std::vector<Record> read(kRecords);
    for (auto _ : state)
    {
        qel::InputMemoryStream stream(reinterpret_cast<const unsigned char*>(document.data()),
                                      qel::u32(document.size()));
        qel::XMLReader reader(&stream, document.size());
        for (Record& record : read)
            record.Serialize(reader);
        reader.Finish();
        benchmark::DoNotOptimize(read.back().id);
    }
    if (std::memcmp(read.back().name, Records().back().name, sizeof read.back().name) != 0)
        state.SkipWithError("read back differs");
    state.SetItemsProcessed(int64_t(state.iterations()) * kRecords);
}
BENCHMARK(BM_RecordsReadXMLReader)->Unit(benchmark::kMillisecond);

void BM_RecordsReadPugixml(benchmark::State& state)
{
    const std::string document = WritePugi();
    std::vector<Record> read(kRecords);
    for (auto _ : state)
    {
        pugi::xml_document parsed;
        parsed.load_buffer(document.data(), document.size());
        std::size_t i = 0;
        for (pugi::xml_node node : parsed.child("qel").children("record"))
        {
            Record& record = read[i++];
            record.id = node.child("id").text().as_uint();
            char* end = nullptr;
            const char* at = node.child("position").text().get();
            for (float& p : record.position)
            {
                p = std::strtof(at, &end);
                at = end;
            }
            std::strncpy(record.name, node.child("name").text().get(), sizeof record.name - 1);
        }
        benchmark::DoNotOptimize(read.back().id);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kRecords);
}
BENCHMARK(BM_RecordsReadPugixml)->Unit(benchmark::kMillisecond);

// ---- the markup document -------------------------------------------------------------

const std::string& Document()
{
    static const std::string text = []
    {
        std::string made = "<?xml version=\"1.0\"?>\n<!-- a generated city -->\n<city>\n";
        char line[512];
        for (int i = 0; made.size() < 10 * 1000 * 1000; ++i)
        {
            std::snprintf(line, sizeof line,
                          "  <house id=\"%d\" street='Long &amp; Narrow'>\n"
                          "    <room name=\"hall\"><lamp power=\"%d\" shade=\"linen\">on</lamp>"
                          "</room>\n"
                          "    <room name=\"study\"><lamp power=\"60\"/><desk>oak, %d cm</desk>"
                          "<![CDATA[<notes>]]></room>\n"
                          "  </house>\n",
                          i, 40 + (i % 3) * 20, 100 + i % 80);
            made += line;
        }
        made += "</city>\n";
        return made;
    }();
    return text;
}

// With fresh:1, a document made and destroyed in each iteration, instead
// of one that each iteration loads again; the unused one costs nothing
// worth measuring.
void BM_MarkupLoadMarkupSTL(benchmark::State& state)
{
    const std::string& text = Document();
    qel::MarkupSTL kept;
    for (auto _ : state)
    {
        qel::MarkupSTL fresh;
        qel::MarkupSTL& doc = state.range(0) ? fresh : kept;
        if (!doc.SetDocument(text.data(), qel::u32(text.size())))
            state.SkipWithError(doc.GetError());
        benchmark::DoNotOptimize(doc.GetElementCount());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
}
BENCHMARK(BM_MarkupLoadMarkupSTL)->ArgName("fresh")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_MarkupLoadPugixml(benchmark::State& state)
{
    const std::string& text = Document();
    pugi::xml_document kept;
    for (auto _ : state)
    {
        pugi::xml_document fresh;
        pugi::xml_document& doc = state.range(0) ? fresh : kept;
        if (!doc.load_buffer(text.data(), text.size()))
            state.SkipWithError("pugixml failed");
        benchmark::DoNotOptimize(doc.first_child());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
}
BENCHMARK(BM_MarkupLoadPugixml)->ArgName("fresh")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// Every lamp with power "60", walking the whole tree.
int CountOurs(qel::MarkupSTL& doc)
{
    int found = 0;
    doc.IntoElement();
    doc.ResetMainPosition();
    while (doc.FindElement())
    {
        if (doc.GetTagName() == "lamp" && doc.GetAttribute("power") == "60")
            ++found;
        found += CountOurs(doc);
    }
    doc.OutOfElement();
    return found;
}

int CountPugi(const pugi::xml_node& node)
{
    int found = 0;
    for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling())
    {
        if (child.type() != pugi::node_element)
            continue;
        if (std::strcmp(child.name(), "lamp") == 0 &&
            std::strcmp(child.attribute("power").value(), "60") == 0)
            ++found;
        found += CountPugi(child);
    }
    return found;
}

void BM_MarkupSearchMarkupSTL(benchmark::State& state)
{
    qel::MarkupSTL doc;
    doc.SetDocument(Document().data(), qel::u32(Document().size()));
    int found = 0;
    for (auto _ : state)
    {
        doc.ResetPosition();
        doc.FindElement();
        found = CountOurs(doc);
        benchmark::DoNotOptimize(found);
    }
    state.counters["found"] = found;
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(Document().size()));
}
BENCHMARK(BM_MarkupSearchMarkupSTL)->Unit(benchmark::kMillisecond);

void BM_MarkupSearchPugixml(benchmark::State& state)
{
    pugi::xml_document doc;
    doc.load_buffer(Document().data(), Document().size());
    int found = 0;
    for (auto _ : state)
    {
        found = CountPugi(doc.document_element());
        benchmark::DoNotOptimize(found);
    }
    state.counters["found"] = found;
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(Document().size()));
}
BENCHMARK(BM_MarkupSearchPugixml)->Unit(benchmark::kMillisecond);

const int kEdits = 100;

// The houses of the document, which the edits go round.
long HouseCount()
{
    static const long count = []
    {
        long houses = 0;
        for (std::size_t at = 0; (at = Document().find("<house ", at)) != std::string::npos; ++at)
            ++houses;
        return houses;
    }();
    return count;
}

// The value an edit gives a house's "checked": another one on each round,
// so that every edit changes the document on both sides.
const char* CheckedValue(long edit)
{
    return (edit / HouseCount()) % 2 == 0 ? "yes" : "no";
}

// Each iteration edits the next houses of one loaded document, from the
// first again once past the last, each round with another value; loading
// and destroying it stay outside the timed region.
void BM_MarkupEditMarkupSTL(benchmark::State& state)
{
    qel::MarkupSTL doc;
    doc.SetDocument(Document().data(), qel::u32(Document().size()));
    doc.FindElement();
    doc.IntoElement();
    long edit = 0;
    for (auto _ : state)
    {
        for (int i = 0; i < kEdits; ++i, ++edit)
        {
            if (!doc.FindElement("house"))
            {
                doc.ResetMainPosition();
                doc.FindElement("house");
            }
            doc.SetAttribute("checked", CheckedValue(edit));
            doc.AddChildElement("garden", "roses & tulips");
        }
        benchmark::DoNotOptimize(doc.GetElementCount());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kEdits * 2);
}
BENCHMARK(BM_MarkupEditMarkupSTL)->Unit(benchmark::kMicrosecond);

void BM_MarkupEditPugixml(benchmark::State& state)
{
    pugi::xml_document doc;
    doc.load_buffer(Document().data(), Document().size());
    pugi::xml_node house;
    long edit = 0;
    for (auto _ : state)
    {
        for (int i = 0; i < kEdits; ++i, ++edit)
        {
            house = house ? house.next_sibling("house") : pugi::xml_node();
            if (!house)
                house = doc.document_element().child("house");
            pugi::xml_attribute checked = house.attribute("checked");
            (checked ? checked : house.append_attribute("checked")).set_value(CheckedValue(edit));
            house.append_child("garden").text().set("roses & tulips");
        }
        benchmark::DoNotOptimize(doc.first_child());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kEdits * 2);
}
BENCHMARK(BM_MarkupEditPugixml)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
