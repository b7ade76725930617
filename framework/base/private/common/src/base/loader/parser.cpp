#include <qel/parser.h>

#include <qel/fileexception.h>
#include <qel/generalallocator.h>
#include <qel/inputfilestream.h>
#include <qel/mem.h>
#include <qel/parsednode.h>
#include <qel/parsedstringpool.h>
#include <qel/report.h>

#include "base/core/singleton.h"
#include "base/loader/texthash.h"

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

const char* Pooled(const char* text, u32 length)
{
    return Made(ParsedStringPool::Create(text, length, true));
}

} // namespace

Parser* Parser::CreateSingletonInstance()
{
    ParsedStringPool::GetSingletonInstance(); // outlives the parser at exit
    return Singleton<Parser, HeapStorage<Parser>>::Create(ms_SingletonInstance, "Parser");
}

Parser::Parser()
    : m_BlockPosition(0), m_Size(0), m_Stream(nullptr), m_File(nullptr), m_Current(0), m_Line(1),
      m_LineStart(0), m_PastEnd(0), m_Error(nullptr), m_Next(nullptr), m_End(nullptr)
{
    Initialize();
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
    const char* stops[] = {nullptr, "\t\n\r (:}", "\t\n\r (}", "\"", "\t\n\r ,)"};
    for (u32 set = SectionEnd; set <= WordEnd; ++set)
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
    for (u32 set = 0; set <= WordEnd; ++set)
    {
        for (int c = 0; c < 256; ++c)
            m_StopInBlock[set][c] = m_Stop[set][c];
        m_StopInBlock[set][0] = true;
        m_StopInBlock[set][static_cast<unsigned char>('\n')] = true;
    }
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

const char* Parser::ReadString(u32 set)
{
    const char* text;
    u32 length;
    u32 hash;
    if (ScanInBlock(set, text, length, hash))
        return Made(ParsedStringPool::Intern(text, length, hash, true));
    return ReadAcross(set);
}

#if defined(__GNUC__)
__attribute__((noinline))
#endif
const char*
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
    return Pooled(length < sizeof small ? small : large.c_str(), length);
}

void Parser::SkipBatchComment(ParsedNode* at)
{
    // After ";*": up to a '*' directly followed by ';', which stays current.
    for (;;)
    {
        if (m_Current == 0)
            Fail("Missing end of batch comment \"*;\"", at);
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

char Parser::SkipToCode(ParsedRoot* parent)
{
    for (;;)
    {
        if (!m_Stop[WhiteSpace][static_cast<unsigned char>(m_Current)])
            ReadUntil(WhiteSpace);
        if (m_Current != ';')
            return char(m_Code[static_cast<unsigned char>(m_Current)]);
        if (m_ParsingComment)
        {
            ParsedComment* comment = Made(m_File->Make<ParsedComment>());
            parent->AddChild(comment);
            Read(comment);
            continue;
        }
        MoveNext();
        if (m_Current == '*')
        {
            // The closing ';' is read again as a line comment: the rest of
            // its line goes too.
            MoveNext();
            SkipBatchComment(parent);
            continue;
        }
        while (m_Current != '\n' && m_Current != 0)
            MoveNext();
    }
}

// ---- the grammar ---------------------------------------------------------------

void Parser::Read(ParsedComment* comment)
{
    MoveNext(); // the ';'
    if (m_Current == '*')
    {
        MoveNext();
        SkipBatchComment(comment);
        return;
    }
    Text text;
    for (; m_Current != '\n' && m_Current != 0; MoveNext())
        if (m_Current != '\r')
            text.push_back(m_Current);
    if (!text.empty())
    {
        comment->SetIdentifier(text.c_str());
        Made(comment->GetIdentifier());
    }
}

void Parser::Read(ParsedFile* file)
{
    for (char c = ReadCode(file); c != 0; c = ReadCode(file))
    {
        if (c == '{')
        {
            MoveNext();
            ParsedSection* section = Made(m_File->Make<ParsedSection>());
            file->AddChild(section);
            Read(section);
        }
        else if (c == 'a')
        {
            ParsedEntry* entry = Made(m_File->Make<ParsedEntry>());
            file->AddChild(entry);
            Read(entry);
        }
        else
        {
            Fail("Missing '{'", file);
        }
    }
}

void Parser::ReadHead(ParsedSection* section)
{
    {
        ParsedString identifier = ParsedString::Adopt(ReadString(SectionEnd));
        if (!identifier.Get())
            Fail("Missing 'Section Identifier' after '{'", section);
        section->m_Identifier = std::move(identifier);
    }
    const char c = ReadCode(section);
    if (c == ':')
        MoveNext();
    if (c == ':' || c == '(')
    {
        ParsedEntry* name = Made(m_File->Make<ParsedEntry>());
        section->SetName(name);
        Read(name);
    }
}

void Parser::Read(ParsedSection* section)
{
    // The sections nested in this one are read in the same loop: the tree
    // being built is the way back out, so that depth takes no stack.
    ReadHead(section);
    ParsedSection* at = section;
    for (;;)
    {
        const char c = ReadCode(at);
        if (c == '}')
        {
            MoveNext();
            if (at == section)
                return;
            at = static_cast<ParsedSection*>(at->GetParent());
        }
        else if (c == '{')
        {
            MoveNext();
            ParsedSection* child = Made(m_File->Make<ParsedSection>());
            at->AddChild(child);
            ReadHead(child);
            at = child;
        }
        else if (c == 'a')
        {
            ParsedEntry* entry = Made(m_File->Make<ParsedEntry>());
            at->AddChild(entry);
            Read(entry);
        }
        else
        {
            Fail("Missing '}'", at);
        }
    }
}

void Parser::Read(ParsedEntry* entry)
{
    ParsedRoot* parent = entry->GetParent();
    bool named;
    {
        ParsedString name = ParsedString::Adopt(ReadString(EntryNameEnd));
        named = name.Get() != nullptr;
        if (named)
            entry->m_Identifier = std::move(name);
    }
    if (ReadCode(parent) != '(')
    {
        if (!named)
            Fail("Missing 'Entry Name' after ':'", entry);
        return;
    }
    MoveNext(); // the '('
    InlineVector<ParsedString, 3>& parameters = entry->m_Parameters;
    for (;;)
    {
        const char c = ReadCode(parent);
        if (c != 'a')
            MoveNext();
        if (c == ')')
            break;
        const char* text = nullptr;
        if (c == '"')
        {
            text = ReadString(QuotedEnd);
            MoveNext(); // the closing quote
        }
        else if (c == 'a')
        {
            text = ReadString(WordEnd);
        }
        else if (c != ',')
        {
            Fail("Missing ')'", entry);
        }
        parameters.push_back(ParsedString::Adopt(text));
        if (c == ',')
        {
            if (ReadCode(parent) == ')')
                parameters.emplace_back(); // a trailing comma
        }
        else if (ReadCode(parent) == ',')
        {
            MoveNext();
            if (ReadCode(parent) == ')')
                parameters.emplace_back();
        }
    }
    if (parameters.empty())
        parameters.emplace_back(); // name() has one empty parameter
}

// ---- files and errors ----------------------------------------------------------

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
        delete file;
        file = nullptr;
    }
    m_Stream = nullptr;
    m_File = nullptr;
    m_Error = nullptr;
    delete stream;
    return file;
}

void Parser::Fail(const char* message, ParsedNode* node)
{
    Text text(message);
    text += "\n\nTree trace: ";
    for (ParsedNode* at = node; at; at = at->GetParent())
    {
        if (at != node)
            text += " <- ";
        if (const char* identifier = at->GetIdentifier())
            text += identifier;
        if (at->GetType() == ParsedNode::SectionType)
        {
            const ParsedEntry* name = static_cast<ParsedSection*>(at)->GetName();
            const char* named = name ? name->GetIdentifier() : nullptr;
            if (named && *named)
            {
                text += " Named ";
                text += named;
            }
        }
    }
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
