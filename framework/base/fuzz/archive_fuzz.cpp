// Loading resource files through the file archive, from any bytes. The
// input is split at its first 0xFF into two files, "a.bin" and "b.bin", and
// "a" is loaded: a header, a version, a class name, then fields that may
// name "a" or "b" (or nest resources inline). Every load either gives a
// graph of objects or throws (an unknown format or class, a file cut short
// or damaged, a missing file, unnamed resources nested deeper than the
// stack allows); a failed load leaves no object in the resource manager,
// and a loaded graph is taken down again completely.
#include <qel/bufferoverflow.h>
#include <qel/classdescriptor.h>
#include <qel/exception.h>
#include <qel/filearchive.h>
#include <qel/filemanager.h>
#include <qel/genericreader.h>
#include <qel/resourcemanager.h>
#include <qel/serializer.h>

#include "fuzzhost.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace
{

using qel::u32;

struct Node : qel::Interface
{
    u32 value = 0;
    char text[16] = {};
    Node* children[2] = {};
};

class NodeClass : public qel::ClassDescriptor
{
public:
    NodeClass() : ClassDescriptor("FuzzNode") {}
    qel::Interface* CreateInstance() const override { return new Node; }
    void SerializeInstance(qel::Interface& object, qel::Serializer& s) const override
    {
        Node& node = static_cast<Node&>(object);
        s.Serialize(node.value);
        qel::ReadString(s, node.text, sizeof node.text);
        for (Node*& child : node.children)
        {
            bool present = false;
            s.Serialize(present);
            if (present)
                child = static_cast<Node*>(static_cast<qel::Interface*>(s.Load()));
        }
    }
};

NodeClass nodeClass;

// Every node reachable from `top`, however deep: a list, not recursion.
void Collect(Node* top, std::set<Node*>& seen)
{
    std::vector<Node*> left{top};
    while (!left.empty())
    {
        Node* node = left.back();
        left.pop_back();
        if (node == nullptr || !seen.insert(node).second)
            continue;
        left.insert(left.end(), std::begin(node->children), std::end(node->children));
    }
}

struct Folder
{
    Folder()
    {
        local = qelfuzz::ScratchPath("qel-archive-fuzz");
        std::filesystem::create_directories(local);
        char path[qel::FileManager::PathSize];
        qel::FileManager::GetSingletonInstance().ResolveLocalPath(local.c_str(), path, sizeof path);
        root = std::string(path) + "/";
    }
    ~Folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(local, ignored);
    }
    std::string local, root;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    qelfuzz::QuietHost::Install();
    static Folder folder;
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t cut = input.find('\xFF');
    std::ofstream(folder.local + "/a.bin", std::ios::binary | std::ios::trunc)
        << input.substr(0, cut);
    std::ofstream(folder.local + "/b.bin", std::ios::binary | std::ios::trunc)
        << (cut == std::string::npos ? std::string() : input.substr(cut + 1));

    // The next index the manager hands out: a failed load must leave it so.
    Node probe;
    const u32 next = qel::ResourceManager::Insert(static_cast<qel::Interface*>(&probe));
    qel::ResourceManager::Remove(static_cast<qel::Interface*>(&probe));

    qel::FileArchive archive(1, folder.root.c_str(), nullptr);
    Node* loaded = nullptr;
    try
    {
        loaded = static_cast<Node*>(static_cast<qel::Interface*>(archive.Load("a")));
    }
    catch (const qel::Exception&)
    {
    }
    catch (const qel::UnknownFormat&)
    {
    }
    // Taken down from the highest index, so that the manager's free indices
    // count down again as they did before the load.
    std::set<Node*> graph;
    Collect(loaded, graph);
    std::vector<std::pair<u32, Node*>> byIndex;
    for (Node* node : graph)
        byIndex.emplace_back(
            qel::ResourceManager::GetResourceIndex(static_cast<qel::Interface*>(node)), node);
    std::sort(byIndex.rbegin(), byIndex.rend());
    for (const auto& entry : byIndex)
    {
        qel::ResourceManager::Remove(static_cast<qel::Interface*>(entry.second));
        delete entry.second;
    }
    if (qel::ResourceManager::Insert(static_cast<qel::Interface*>(&probe)) != next)
        std::abort(); // an object was left in the manager
    qel::ResourceManager::Remove(static_cast<qel::Interface*>(&probe));
    return 0;
}
