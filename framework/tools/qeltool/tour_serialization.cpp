// Tour section of the serializer: a small scene saved with each binary
// writer into memory, read back through the reader the stream's tag picks,
// the same scene printed through the text writer, and saved as XML and
// read back. The loaded nodes are
// then given resource indices.
#include "tour.h"

#include <qel/binaryswapperwriter.h>
#include <qel/binarywriter.h>
#include <qel/genericreader.h>
#include <qel/inputmemorystream.h>
#include <qel/outputmemorystream.h>
#include <qel/resourcemanager.h>
#include <qel/textwriter.h>
#include <qel/xmlreader.h>
#include <qel/xmlwriter.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace qeltool
{

namespace
{

struct Node
{
    char name[32] = {};
    float position[3] = {};
    qel::u32 parent = 0; // index in the scene; a root is its own parent
    bool visible = true;

    // One routine for both directions: the serializer decides.
    void Serialize(qel::Serializer& s)
    {
        s.Identify("Name");
        if (s.IsWriting())
            qel::WriteString(s, name);
        else
            qel::ReadString(s, name, sizeof name);
        s.Identify("Position");
        s.Begin();
        s.Serialize(position, 3, sizeof(float));
        s.End();
        s.Identify("Parent");
        s.Serialize(parent);
        s.Identify("Visible");
        s.Serialize(visible);
    }
};

struct Scene
{
    std::vector<Node> nodes;
    double time = 0;

    void Serialize(qel::Serializer& s)
    {
        qel::u32 count = static_cast<qel::u32>(nodes.size());
        s.Begin();
        s.Identify("Time");
        s.Serialize(time);
        s.Identify("Node Count");
        s.Serialize(count);
        nodes.resize(count);
        for (Node& node : nodes)
        {
            s.Identify("Node");
            s.Begin();
            node.Serialize(s);
            s.End();
        }
        s.End();
    }
};

Scene SampleScene()
{
    Scene scene;
    scene.time = 12.5;
    const struct
    {
        const char* name;
        float x, y, z;
        qel::u32 parent;
        bool visible;
    } nodes[] = {{"world", 0, 0, 0, 0, true},
                 {"crate", 1.5f, 0, -2, 0, true},
                 {"lid", 0, 0.75f, 0, 1, false}};
    for (const auto& n : nodes)
    {
        Node node;
        std::strncpy(node.name, n.name, sizeof node.name - 1);
        node.position[0] = n.x, node.position[1] = n.y, node.position[2] = n.z;
        node.parent = n.parent;
        node.visible = n.visible;
        scene.nodes.push_back(node);
    }
    return scene;
}

bool SameScene(const Scene& a, const Scene& b)
{
    if (a.time != b.time || a.nodes.size() != b.nodes.size())
        return false;
    for (size_t i = 0; i < a.nodes.size(); ++i)
    {
        const Node& x = a.nodes[i];
        const Node& y = b.nodes[i];
        if (std::strcmp(x.name, y.name) != 0 || x.parent != y.parent || x.visible != y.visible ||
            std::memcmp(x.position, y.position, sizeof x.position) != 0)
            return false;
    }
    return true;
}

// Saves `scene` with W, prints the stream's head and reads it back.
template <class W>
void SaveAndLoad(const char* title, Scene& scene)
{
    qel::OutputMemoryStream out;
    {
        W writer(&out, nullptr);
        writer.WriteUniqueHeader();
        scene.Serialize(writer);
    }
    out.Flush();
    qel::u32 size = 0;
    const unsigned char* bytes = out.GetBuffer(size);
    std::printf("%-20s %u bytes: \"%.8s\" then", title, unsigned(size), bytes);
    for (qel::u32 i = 8; i < 20 && i < size; ++i)
        std::printf(" %02X", bytes[i]);
    std::printf(" ...\n");

    qel::InputMemoryStream in(bytes, size);
    std::unique_ptr<qel::Reader> reader(qel::GenericReader::Create(&in, nullptr));
    Scene loaded;
    loaded.Serialize(*reader);
    std::printf("%-20s %u nodes, time %g: %s\n", "  read back", unsigned(loaded.nodes.size()),
                loaded.time, SameScene(scene, loaded) ? "identical" : "DIFFERENT");
}

} // namespace

void TourSerialization(const TourContext&)
{
    Banner("serialization");
    Scene scene = SampleScene();
    SaveAndLoad<qel::BinaryWriter>("BinaryWriter", scene);
    SaveAndLoad<qel::BinarySwapperWriter>("BinarySwapperWriter", scene);

    std::printf("TextWriter:\n");
    qel::OutputMemoryStream out;
    {
        qel::TextWriter writer(&out);
        scene.Serialize(writer);
    }
    out.Flush();
    qel::u32 size = 0;
    const unsigned char* text = out.GetBuffer(size);
    std::fwrite(text, 1, size, stdout);

    std::printf("XMLWriter:\n");
    qel::OutputMemoryStream xml;
    {
        qel::XMLWriter writer(&xml);
        scene.Serialize(writer);
    }
    xml.Flush();
    const unsigned char* document = xml.GetBuffer(size);
    std::fwrite(document, 1, size, stdout);
    qel::InputMemoryStream in(document, size);
    qel::XMLReader reader(&in, size);
    Scene loaded;
    try
    {
        loaded.Serialize(reader);
        reader.Finish();
        std::printf("%-20s %u nodes: %s\n", "  read back", unsigned(loaded.nodes.size()),
                    SameScene(scene, loaded) ? "identical" : "DIFFERENT");
    }
    catch (const qel::XMLFormatError& error)
    {
        std::printf("  read back failed: %s\n", error.GetReason());
    }

    std::printf("resource indices:");
    for (Node& node : scene.nodes)
        std::printf(" %s=%u", node.name, unsigned(qel::ResourceManager::Insert(&node)));
    for (Node& node : scene.nodes)
        qel::ResourceManager::Remove(&node);
    std::printf("\n");
}

} // namespace qeltool
