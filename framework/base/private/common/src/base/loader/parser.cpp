#include <qel/parser.h>

#include <qel/fileexception.h>
#include <qel/generalallocator.h>
#include <qel/inputfilestream.h>
#include <qel/mem.h>
#include <qel/parsednode.h>
#include <qel/parsedstringpool.h>
#include <qel/report.h>

#include "base/core/singleton.h"
#include "base/loader/parsedlinks.h"
#include "base/loader/parsedrecord.h"
#include "base/loader/texthash.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace qel
{

std::atomic<Parser*> Parser::ms_SingletonInstance{nullptr};

namespace
{

// Syntax errors are reported in the "Base" category.
const u32 kCategory = 2;

typedef std::basic_string<char, std::char_traits<char>, GeneralAllocator<char>> Text;

// Thrown past the reading steps once a syntax error was reported, or once
// the memory of a node or a text could not be had (reported by the
// allocator): the partial tree is destroyed.
struct Abandon
{
};

template <class Node>
Node* Made(Node* node)
{
    if (node == nullptr)
        throw Abandon();
    return node;
}

} // namespace

Parser* Parser::CreateSingletonInstance()
{
    ParsedStringPool::GetSingletonInstance(); // outlives the parser at exit
    return Singleton<Parser, HeapStorage<Parser>>::Create(ms_SingletonInstance, "Parser");
}

Parser::Parser()
    : m_BlockPosition(0), m_Size(0), m_Stream(nullptr), m_File(nullptr), m_NodeBytes(0),
      m_ChunkBytes(0), m_Current(0), m_Line(1), m_LineStart(0), m_PastEnd(0), m_Error(nullptr),
      m_Next(nullptr), m_End(nullptr), m_EntryName(nullptr), m_ReadingName(false)
{
    Initialize();
    const ParsedEntry entry;
    const ParsedSection section;
    m_EntryItems =
        u32(reinterpret_cast<const char*>(&entry.m_Items) - reinterpret_cast<const char*>(&entry));
    m_SectionItems = u32(reinterpret_cast<const char*>(&section.m_Items) -
                         reinterpret_cast<const char*>(&section));
}

void Parser::InitializeSet(bool* set, bool value)
{
    for (int i = 0; i < 256; ++i)
        set[i] = value;
}

void Parser::Initialize()
{
    m_ParsingComment = true;
    std::memset(m_Block, 0, sizeof m_Block); // what is read past a text is defined

    InitializeSet(m_WordStart, true);
    for (unsigned char c : {'\0', '{', '}', ':', '(', ')', ',', '"', ';'})
        m_WordStart[c] = false;
    InitializeSet(m_Stop[WhiteSpace], true);
    for (unsigned char c : {'\t', '\n', '\r', ' '})
        m_Stop[WhiteSpace][c] = false;
    const char* stops[] = {nullptr, "\t\n\r (:}", "\t\n\r (}", "\"", "\t\n\r ,)", "\n"};
    for (u32 set = SectionEnd; set <= CommentEnd; ++set)
    {
        InitializeSet(m_Stop[set], false);
        m_Stop[set][0] = true; // the end of the file stops every scan
        for (const char* c = stops[set]; *c; ++c)
            m_Stop[set][static_cast<unsigned char>(*c)] = true;
    }
    for (int c = 0; c < 256; ++c)
        m_Code[c] = !m_Stop[WhiteSpace][c] || c == ';' ? Skipped
                    : m_WordStart[c]                   ? 'a'
                                                       : static_cast<unsigned char>(c);
    for (u32 set = 0; set <= CommentEnd; ++set)
    {
        for (int c = 0; c < 256; ++c)
            m_StopInBlock[set][c] = m_Stop[set][c];
        m_StopInBlock[set][0] = true;
        m_StopInBlock[set][static_cast<unsigned char>('\n')] = true;
    }
    m_StopInBlock[CommentEnd][static_cast<unsigned char>('\r')] = true;
}

void Parser::SetParsingComment(bool parsing)
{
    GetSingletonInstance().m_ParsingComment = parsing;
}

// ---- reading primitives --------------------------------------------------------

void Parser::MoveOn()
{
    if (m_Current == '\n')
    {
        ++m_Line;
        m_LineStart = GetPosition();
    }
    const u64 position = GetPosition();
    if (position == m_Size)
    {
        if (m_Current != 0)
            ++m_PastEnd;
        m_Current = 0;
        return;
    }
    if (m_Next == m_End)
    {
        m_BlockPosition = position;
        m_Next = m_Block;
        const u64 left = m_Size - position;
        m_End = m_Block + m_Stream->Read(m_Block, left < BlockSize ? u32(left) : u32(BlockSize));
        m_Block[m_End - m_Block] = 0; // the end mark
        if (m_Next == m_End)
        {
            m_Current = 0; // the file ended early: as at its end
            m_Size = position;
            ++m_PastEnd;
            return;
        }
    }
    m_Current = char(*m_Next++);
}

u32 Parser::ReadUntil(u32 set)
{
    // Byte by byte within the block, lines counted as they are passed;
    // MoveNext at the block's end reads the next one.
    const bool* stop = m_Stop[set];
    u32 passed = 0;
    for (;;)
    {
        const unsigned char* at = m_Next;
        const unsigned char* const from = at;
        const unsigned char* const end = m_End;
        unsigned char c = static_cast<unsigned char>(m_Current);
        for (; !stop[c] && at != end; c = *at++)
            if (c == '\n')
            {
                ++m_Line;
                m_LineStart = m_BlockPosition + u64(at - m_Block);
            }
        m_Next = at;
        m_Current = char(c);
        passed += u32(at - from);
        if (stop[c])
            return passed;
        MoveNext();
        ++passed;
    }
}

inline bool Parser::ScanInBlock(u32 set, const char*& text, u32& length, u32& hash)
{
    // The text's first byte is the current one, the last one read.
    const bool* stop = m_StopInBlock[set];
    if (stop[static_cast<unsigned char>(m_Current)])
        return false;
    const unsigned char* at = m_Next;
    while (!stop[*at])
        ++at;
    if (at == m_End || !m_Stop[set][*at])
        return false;
    text = reinterpret_cast<const char*>(m_Next - 1);
    length = u32(at - m_Next) + 1;
    hash = TextHash::Of<true>(text, length);
    m_Current = char(*at);
    m_Next = at + 1;
    return true;
}

// In line in the reading steps, with the lookup in it: as calls they took
// a twentieth of a parse's instructions.
#if defined(__GNUC__)
__attribute__((always_inline))
#endif
inline Parser::Record*
Parser::ReadString(u32 set)
{
    const char* text;
    u32 length;
    u32 hash;
    if (!ScanInBlock(set, text, length, hash))
        return ReadAcross(set);
    // A text pooled already in the first slot it hashes to, in line.
    ParsedStringPool& pool = ParsedStringPool::GetSingletonInstance();
    if (pool.m_Capacity != 0)
    {
        const u32 home = pooledtext::HomeOf(hash, pool.m_Capacity);
        if (Record* record = pooledtext::RecordHolding<Record>(
                pool.m_Base, pool.m_Slots[home], pool.m_Tags[home], pooledtext::TagOf(hash, length),
                text, length))
            if (TakeRecord(record))
                return record;
    }
    // Any other text goes through the pool, as does one whose count could
    // not carry (it then gives null there too, or takes the reference).
    return Made(ParsedStringPool::InternRecord(text, length, hash, true));
}

#if defined(__GNUC__)
__attribute__((noinline))
#endif
Parser::Record*
Parser::ReadAcross(u32 set)
{
    char small[256];
    Text large;
    u32 length = 0;
    while (!m_Stop[set][static_cast<unsigned char>(m_Current)])
    {
        if (length < sizeof small - 1)
            small[length] = m_Current;
        else
        {
            if (large.empty())
                large.assign(small, length);
            large.push_back(m_Current);
        }
        ++length;
        MoveNext();
    }
    if (length == 0)
        return nullptr;
    const char* text = length < sizeof small ? small : large.c_str();
    return Made(
        ParsedStringPool::InternRecord(text, length, TextHash::Of<false>(text, length), true));
}

void Parser::SkipBatchComment(bool inComment)
{
    // After ";*": up to a '*' directly followed by ';', which stays current.
    for (;;)
    {
        if (m_Current == 0)
            Fail("Missing end of batch comment \"*;\"", inComment);
        if (m_Current == '*')
        {
            MoveNext();
            if (m_Current == ';')
                return;
            continue;
        }
        MoveNext();
    }
}

char Parser::SkipToCode()
{
    for (;;)
    {
        if (!m_Stop[WhiteSpace][static_cast<unsigned char>(m_Current)])
            ReadUntil(WhiteSpace);
        if (m_Current != ';')
            return char(m_Code[static_cast<unsigned char>(m_Current)]);
        if (m_ParsingComment)
        {
            ReadComment();
            continue;
        }
        MoveNext();
        if (m_Current == '*')
        {
            // The closing ';' is read again as a line comment: the rest of
            // its line goes too.
            MoveNext();
            SkipBatchComment(false);
            continue;
        }
        SkipLine();
    }
}

void Parser::SkipLine()
{
    // Up to the line end or a zero, found in the rest of the block at once
    // (its end mark is a zero too); the next block's part byte by byte.
    if (m_Current != '\n' && m_Current != 0 && m_Next != m_End)
    {
        const unsigned char* at =
            m_Next + std::strcspn(reinterpret_cast<const char*>(m_Next), "\n");
        if (at == m_End)
            --at; // its last byte, which is neither
        m_Current = char(*at);
        m_Next = at + 1;
    }
    while (m_Current != '\n' && m_Current != 0)
        MoveNext();
}

// ---- the grammar ---------------------------------------------------------------

inline void* Parser::Place(u32 bytes)
{
    void* place = m_File->Allocate(bytes);
    return place ? place : PlaceInNewChunk(bytes);
}

void Parser::ReadComment()
{
    // A batch comment keeps no text; its node is the innermost one while it
    // is read. A line's text within the block is pooled from there, once
    // the node is made; any other is gathered byte by byte.
    MoveNext(); // the ';'
    Text gathered;
    const char* text = nullptr;
    u32 length = 0;
    u32 hash = 0;
    if (m_Current == '*')
    {
        MoveNext();
        SkipBatchComment(true);
    }
    else if (!ScanInBlock(CommentEnd, text, length, hash))
    {
        for (; m_Current != '\n' && m_Current != 0; MoveNext())
            if (m_Current != '\r')
                gathered.push_back(m_Current);
    }
    ParsedComment* comment = new (Place(u32(sizeof(ParsedComment)))) ParsedComment;
    comment->m_Word |= ParsedNode::InFile;
    m_Children.push_back(comment);
    Record* record = nullptr;
    if (text != nullptr)
        record = Made(ParsedStringPool::InternRecord(text, length, hash, true));
    else if (!gathered.empty())
        record = Made(ParsedStringPool::CreateRecord(gathered.c_str()));
    if (record != nullptr)
        ParsedLinks::Link(*comment, comment->m_Identifier, record);
}

void Parser::Read(ParsedFile* file)
{
    m_Open.push_back(Open{nullptr, 0, false, nullptr, 0}); // the file
    for (;;)
    {
        const char c = ReadCode();
        if (c == 'a')
        {
            ReadEntry(false);
            continue;
        }
        if (c == '{')
        {
            MoveNext();
            ReadHead();
            continue;
        }
        const bool inSection = m_Open.size() > 1;
        if (c == '}' && inSection)
        {
            MoveNext();
            CloseSection();
            continue;
        }
        if (c == 0 && !inSection)
            break;
        Fail(inSection ? "Missing '}'" : "Missing '{'");
    }
    // The file takes its children over in one step, or none of them; their
    // links go in its chunks, unless too many for a count.
    const u32 count = u32(m_Children.size());
    for (ParsedNode* child : m_Children)
        ParsedLinks::LinkNew(*child, child->m_Parent, file);
    if (count > ParsedNode::MaxCount)
        ParsedLinks::MakeList(*file, file->m_Items,
                              reinterpret_cast<void* const*>(m_Children.data()), count);
    else if (count != 0)
    {
        u32* links = ParsedLinks::Place(Place(ParsedLinks::PlacedBytes(count)), count);
        try
        {
            for (u32 i = 0; i < count; ++i)
                ParsedLinks::LinkNew(*file, links[i], m_Children[i]);
            ParsedLinks::LinkNew(*file, file->m_Items, links);
        }
        catch (...)
        {
            ParsedLinks::ForgetFar(*file, links, links + count);
            throw;
        }
        // No longer listed, the file is placed.
        file->m_Word = (file->m_Word & ~u32(ParsedNode::Listed)) | count << ParsedNode::CountShift;
    }
    m_Children.clear();
    m_Open.clear();
}

void Parser::ReadHead()
{
    // The section is read before it is made: its children's number is
    // known at its end.
    m_Open.push_back(Open{nullptr, u32(m_Children.size()), false, nullptr, 0});
    m_Open.back().identifier = ReadString(SectionEnd);
    if (m_Open.back().identifier == nullptr)
        Fail("Missing 'Section Identifier' after '{'");
    const char c = ReadCode();
    if (c == ':')
        MoveNext();
    if (c == ':' || c == '(')
        ReadEntry(true);
}

inline u32 Parser::EntryBytes(u32 count) const
{
    // A listed entry keeps the room of one link.
    return m_EntryItems + 4 * (count > ParsedNode::MaxCount || count == 0 ? 1 : count);
}

// In line in the reading steps: as a call it took a fortieth of a parse's
// instructions.
#if defined(__GNUC__)
__attribute__((always_inline))
#endif
inline void
Parser::LinkEntry(ParsedEntry* entry, Record* name, Record* const* parameters, u32 count)
{
    if (count > ParsedNode::MaxCount)
    {
        entry->m_Word |= ParsedNode::Listed;
        ParsedLinks::MakeList(*entry, entry->m_Items, reinterpret_cast<void* const*>(parameters),
                              count);
    }
    else
    {
        u32* links = ParsedLinks::Links(entry->m_Items);
        for (u32 i = 0; i < count; ++i)
            if (parameters[i] != nullptr)
                ParsedLinks::LinkNew(*entry, links[i], parameters[i]);
            else
                links[i] = 0;
    }
    if (name)
        ParsedLinks::LinkNew(*entry, entry->m_Identifier, name);
}

void Parser::ReadEntry(bool name)
{
    // A child keeps its place among its parent's children while comments
    // met in it join them after it.
    const std::size_t place = m_Children.size();
    if (!name)
        m_Children.push_back(nullptr);
    const u32 first = u32(m_Parameters.size());
    m_ReadingName = name;
    m_EntryName = ReadString(EntryNameEnd);
    if (ReadCode() == '(')
    {
        MoveNext();
        for (;;)
        {
            const char c = ReadCode();
            if (c != 'a')
                MoveNext();
            if (c == ')')
                break;
            if (c != '"' && c != 'a' && c != ',')
                Fail("Missing ')'", true, m_EntryName);
            m_Parameters.push_back(nullptr);
            if (c == '"')
            {
                m_Parameters.back() = ReadString(QuotedEnd);
                MoveNext(); // the closing quote
            }
            else if (c == 'a')
            {
                m_Parameters.back() = ReadString(WordEnd);
            }
            if (c == ',')
            {
                if (ReadCode() == ')')
                    m_Parameters.push_back(nullptr); // a trailing comma
            }
            else if (ReadCode() == ',')
            {
                MoveNext();
                if (ReadCode() == ')')
                    m_Parameters.push_back(nullptr);
            }
        }
        if (m_Parameters.size() == first)
            m_Parameters.push_back(nullptr); // name() has one empty parameter
    }
    else if (m_EntryName == nullptr)
    {
        Fail("Missing 'Entry Name' after ':'", true);
    }
    m_ReadingName = false;
    if (name)
    {
        Open& open = m_Open.back();
        open.named = true;
        open.name = m_EntryName;
        open.parameters = first;
        m_EntryName = nullptr;
        return;
    }

    // Made, the entry is linked to its parameters, then to its name, and
    // only then owns them: a far link's table entry may find no memory, and
    // the entry is then left dead in its file (it is made with its room, as
    // its file reads its chunks node by node).
    const u32 count = u32(m_Parameters.size()) - first;
    const u32 bytes = EntryBytes(count);
    ParsedEntry* entry = new (Place(bytes)) ParsedEntry(count > ParsedNode::MaxCount ? 0 : count);
    try
    {
        LinkEntry(entry, m_EntryName, m_Parameters.data() + first, count);
    }
    catch (...)
    {
        Bury(entry, entry->m_Items, bytes);
        throw;
    }
    m_Children[place] = entry;
    m_EntryName = nullptr;
    m_Parameters.resize(first);
}

void Parser::CloseSection()
{
    // Made, the section is linked to its children, name entry and
    // identifier, and only then owns them and takes their place in
    // m_Children: a far link's table entry may find no memory, and the
    // section and its name entry are then left dead in its file (they are
    // made with their room, as its file reads its chunks node by node).
    const Open open = m_Open.back();
    const u32 count = u32(m_Children.size()) - open.first;
    if (count == 0)
        m_Children.push_back(nullptr); // its place
    const bool listed = count > ParsedNode::MaxCount;
    const u32 bytes = m_SectionItems + 4 * (listed || count == 0 ? 1 : count);
    const u32 parameters = open.named ? u32(m_Parameters.size()) - open.parameters : 0;
    const u32 nameBytes = open.named ? EntryBytes(parameters) : 0;
    char* const place = static_cast<char*>(Place(bytes + nameBytes));
    ParsedSection* section = new (place) ParsedSection(listed ? 0 : count);
    ParsedEntry* name = nullptr;
    if (open.named)
    {
        name = new (place + bytes) ParsedEntry(parameters > ParsedNode::MaxCount ? 0 : parameters);
        section->m_Word |= ParsedNode::NamedAfter;
    }
    ParsedNode** children = m_Children.data() + open.first;
    try
    {
        if (listed)
        {
            section->m_Word |= ParsedNode::Listed;
            ParsedLinks::MakeList(*section, section->m_Items,
                                  reinterpret_cast<void* const*>(children), count);
        }
        else
        {
            u32* links = ParsedLinks::Links(section->m_Items);
            links[0] = 0;
            for (u32 i = 0; i < count; ++i)
                ParsedLinks::LinkNew(*section, links[i], children[i]);
        }
        if (name)
        {
            LinkEntry(name, open.name, m_Parameters.data() + open.parameters, parameters);
            ParsedLinks::LinkNew(*name, name->m_Parent, section);
        }
        for (u32 i = 0; i < count; ++i)
            ParsedLinks::LinkNew(*children[i], children[i]->m_Parent, section);
        ParsedLinks::LinkNew(*section, section->m_Identifier, open.identifier);
    }
    catch (...)
    {
        if (name)
            Bury(name, name->m_Items, nameBytes);
        Bury(section, section->m_Items, bytes);
        throw;
    }
    m_Open.pop_back();
    if (open.named)
        m_Parameters.resize(open.parameters);
    m_Children.resize(open.first + 1);
    m_Children[open.first] = section;
}

void Parser::Bury(ParsedNode* node, u32& first, u32 bytes)
{
    // Its texts and children are still the parser's: only its list and
    // far links go.
    ParsedLinks::FreeList(*node, first);
    ParsedLinks::ForgetFar(*node, reinterpret_cast<const u32*>(node),
                           reinterpret_cast<const u32*>(reinterpret_cast<char*>(node) + bytes));
    ParsedLinks::Bury(node, bytes);
}

// ---- files and errors ----------------------------------------------------------

void* Parser::PlaceInNewChunk(u32 bytes)
{
    // Chunks double from 4 KB up to 4 MB, none much larger than what the
    // rest of the file is expected to need at the rate so far: its nodes,
    // and the links of all of the file's children, which go in at its end.
    // So the last chunk ends nearly full, holding the links too; one made
    // at the end, for the links only, has their size. An estimate short of
    // the need costs one more chunk, sized again.
    u64 chunk = m_ChunkBytes == 0           ? 4096
                : m_ChunkBytes < (4u << 20) ? 2 * u64(m_ChunkBytes)
                                            : m_ChunkBytes;
    const u64 position = GetPosition();
    if (position != 0 && m_NodeBytes != 0)
    {
        // A file holding more children than a count keeps their links in
        // a list instead.
        const double used = double(m_NodeBytes - u64(m_File->m_FreeEnd - m_File->m_Free));
        const double children = double(m_Open.size() > 1 ? m_Open[1].first : m_Children.size());
        const double scale = double(m_Size) / double(position);
        const u64 nodes = u64(used * (scale - 1));
        const u64 links = u64(std::min(4 * children * scale, 4.0 * ParsedNode::MaxCount));
        const u64 need = position >= m_Size ? 0 : nodes + links + (nodes + links) / 256 + 4096;
        // Nor leaving the rest of the nodes to another chunk when they
        // take up to two: near the end of the file one chunk takes all
        // (up to 64 MB).
        if (chunk > need || nodes <= 2 * chunk)
            chunk = std::min(need, u64(64) << 20);
    }
    const u64 least = bytes + ParsedFile::ChunkHeader;
    m_ChunkBytes = u32(chunk > least ? chunk : least);
    m_NodeBytes += m_ChunkBytes;
    return Made(m_File->AllocateInNewChunk(bytes, m_ChunkBytes));
}

ParsedFile* Parser::ParseFile(const char* path)
{
    return GetSingletonInstance().Parse(path, nullptr);
}

ParsedFile* Parser::CheckFile(const char* path, ParseError& error)
{
    return GetSingletonInstance().Parse(path, &error);
}

ParsedFile* Parser::Parse(const char* path, ParseError* error)
{
    InputFileStream* stream;
    try
    {
        stream = new InputFileStream(path);
    }
    catch (const FileException&)
    {
        return nullptr;
    }
    ParsedFile* file = stream != nullptr ? new ParsedFile : nullptr;
    if (file == nullptr)
    {
        delete stream;
        return nullptr; // reported by the allocator
    }
    m_Stream = stream;
    m_File = file;
    m_NodeBytes = 0;
    m_ChunkBytes = 0;
    m_Error = error;
    m_BlockPosition = 0;
    m_Size = stream->GetSize();
    m_Current = 0;
    m_Line = 1;
    m_LineStart = 0;
    m_PastEnd = 0;
    m_Next = m_End = m_Block;
    try
    {
        file->SetIdentifier(path);
        Made(file->GetIdentifier());
        MoveNext();
        Read(file);
    }
    catch (...)
    {
        Abandoned();
        delete file;
        file = nullptr;
    }
    // The lists keep their room for the next file, unless a big one grew
    // them.
    if (m_Children.capacity() > 4096)
        std::vector<ParsedNode*, GeneralAllocator<ParsedNode*>>().swap(m_Children);
    if (m_Parameters.capacity() > 4096)
        std::vector<Record*, GeneralAllocator<Record*>>().swap(m_Parameters);
    if (m_Open.capacity() > 4096)
        std::vector<Open, GeneralAllocator<Open>>().swap(m_Open);
    m_Stream = nullptr;
    m_File = nullptr;
    m_Error = nullptr;
    delete stream;
    return file;
}

void Parser::Abandoned()
{
    for (ParsedNode* child : m_Children)
        ParsedNode::Destroy(child);
    m_Children.clear();
    for (Open& open : m_Open)
        for (Record* text : {open.identifier, open.name})
            if (text)
                ParsedStringPool::ReleaseRecord(text);
    m_Open.clear();
    for (Record* parameter : m_Parameters)
        if (parameter)
            ParsedStringPool::ReleaseRecord(parameter);
    m_Parameters.clear();
    if (m_EntryName)
        ParsedStringPool::ReleaseRecord(m_EntryName);
    m_EntryName = nullptr;
}

void Parser::Fail(const char* message, bool below, const Record* identifier)
{
    Text text(message);
    text += "\n\nTree trace: ";
    bool first = true;
    auto add = [&](const char* node)
    {
        if (!first)
            text += " <- ";
        first = false;
        if (node)
            text += node;
    };
    if (below)
        add(identifier ? identifier->Text() : nullptr);
    for (std::size_t level = m_Open.size(); level-- > 1;)
    {
        const Open& open = m_Open[level];
        add(open.identifier ? open.identifier->Text() : nullptr);
        const char* named = open.name ? open.name->Text() : nullptr;
        if (level == m_Open.size() - 1 && m_ReadingName && m_EntryName)
            named = m_EntryName->Text(); // the name entry being read
        if (named && *named)
        {
            text += " Named ";
            text += named;
        }
    }
    add(m_File->GetIdentifier());
    text += "\n";
    if (m_Error != nullptr)
    {
        m_Error->line = m_Line;
        m_Error->column = u32(GetPosition() - m_LineStart) + m_PastEnd;
        std::snprintf(m_Error->message, sizeof m_Error->message, "%s", message);
        const std::size_t at = text.find("Tree trace: ") + 12;
        std::snprintf(m_Error->trace, sizeof m_Error->trace, "%.*s", int(text.size() - at - 1),
                      text.c_str() + at);
        throw Abandon();
    }
    QEL_FATAL_ERROR(kCategory, "%s", text.c_str());
    throw Abandon();
}

} // namespace qel
