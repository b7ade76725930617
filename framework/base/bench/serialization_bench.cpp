// The binary serializer against cereal's binary archives and a plain memcpy
// into a growing buffer, on the same data in one program and run:
//   - 10 million u32 values, as one array and one value at a time;
//   - 1 million small records (a float[3], a u32, a bool, a short string).
// Writers start from an empty buffer on every iteration: qel's writers go to
// the growing OutputMemoryStream (and, for comparison, to an
// OutputBufferStream over a buffer made once), cereal's to an
// std::ostringstream, memcpy to an std::vector grown as it goes. Readers read
// the bytes their own writer made, from memory.
#include <qel/binaryreader.h>
#include <qel/binaryswapperreader.h>
#include <qel/binaryswapperwriter.h>
#include <qel/binarywriter.h>
#include <qel/inputmemorystream.h>
#include <qel/outputbufferstream.h>
#include <qel/outputmemorystream.h>

#include <cereal/archives/binary.hpp>
#include <cereal/types/string.hpp>

#include <benchmark/benchmark.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace
{

using qel::u32;

constexpr u32 WordCount = 10000000;
constexpr u32 RecordCount = 1000000;

struct Record
{
    float position[3];
    u32 id;
    bool visible;
    std::string name;

    void Serialize(qel::Serializer& s)
    {
        s.Serialize(position, 3, sizeof(float));
        s.Serialize(id);
        s.Serialize(visible);
        if (s.IsWriting())
            qel::WriteString(s, name.data(), u32(name.size()));
        else
        {
            u32 length = 0;
            s.Serialize(length);
            name.resize(length);
            s.Serialize(&name[0], length, 1);
        }
    }

    template <class Archive>
    void serialize(Archive& archive)
    {
        archive(position, id, visible, name);
    }
};

const std::vector<u32>& Words()
{
    static std::vector<u32> words = []
    {
        std::vector<u32> w(WordCount);
        for (u32 i = 0; i < WordCount; ++i)
            w[i] = i * 2654435761u;
        return w;
    }();
    return words;
}

const std::vector<Record>& Records()
{
    static std::vector<Record> records = []
    {
        std::vector<Record> r(RecordCount);
        for (u32 i = 0; i < RecordCount; ++i)
            r[i] = Record{{float(i), 0.5f, -float(i)}, i, i % 3 == 0, "node" + std::to_string(i)};
        return r;
    }();
    return records;
}

// A read-only stream buffer over memory, so cereal reads without a copy.
struct MemoryBuffer : std::streambuf
{
    MemoryBuffer(const char* data, size_t size)
    {
        char* begin = const_cast<char*>(data);
        setg(begin, begin, begin + size);
    }
};

// ---- writers -----------------------------------------------------------

enum Shape
{
    ArrayOfWords,
    WordByWord,
    Records_
};

template <class W>
void WriteShape(W& writer, Shape shape)
{
    if (shape == ArrayOfWords)
        writer.Serialize(const_cast<u32*>(Words().data()), WordCount, 4);
    else if (shape == WordByWord)
        for (u32 word : Words())
            writer.Serialize(word);
    else
        for (const Record& record : Records())
            const_cast<Record&>(record).Serialize(writer);
}

int64_t ItemsOf(Shape shape)
{
    return shape == Records_ ? RecordCount : WordCount;
}

template <class W>
void QelWrite(benchmark::State& state, Shape shape)
{
    for (auto _ : state)
    {
        qel::OutputMemoryStream stream;
        W writer(&stream, nullptr);
        WriteShape(writer, shape);
        stream.Flush();
        u32 size = 0;
        benchmark::DoNotOptimize(stream.GetBuffer(size));
    }
    state.SetItemsProcessed(state.iterations() * ItemsOf(shape));
}

template <class W>
void QelWriteToBuffer(benchmark::State& state, Shape shape)
{
    std::vector<unsigned char> buffer(64u << 20);
    for (auto _ : state)
    {
        qel::OutputBufferStream stream(buffer.data(), buffer.data(), buffer.data() + buffer.size());
        W writer(&stream, nullptr);
        WriteShape(writer, shape);
        stream.Flush();
        benchmark::DoNotOptimize(buffer.data());
    }
    state.SetItemsProcessed(state.iterations() * ItemsOf(shape));
}

void CerealWrite(benchmark::State& state, Shape shape)
{
    for (auto _ : state)
    {
        std::ostringstream stream;
        cereal::BinaryOutputArchive archive(stream);
        if (shape == ArrayOfWords)
            archive(cereal::binary_data(Words().data(), WordCount * sizeof(u32)));
        else if (shape == WordByWord)
            for (u32 word : Words())
                archive(word);
        else
            for (const Record& record : Records())
                archive(record);
        benchmark::DoNotOptimize(stream.tellp());
    }
    state.SetItemsProcessed(state.iterations() * ItemsOf(shape));
}

// Appends `size` bytes to a vector that grows as a growing buffer does.
inline void Append(std::vector<unsigned char>& out, const void* data, size_t size)
{
    const size_t at = out.size();
    out.resize(at + size);
    std::memcpy(out.data() + at, data, size);
}

void MemcpyWrite(benchmark::State& state, Shape shape)
{
    for (auto _ : state)
    {
        std::vector<unsigned char> out;
        if (shape == ArrayOfWords)
            Append(out, Words().data(), WordCount * sizeof(u32));
        else if (shape == WordByWord)
            for (u32 word : Words())
                Append(out, &word, 4);
        else
            for (const Record& r : Records())
            {
                const u32 length = u32(r.name.size());
                const unsigned char visible = r.visible;
                Append(out, r.position, 12);
                Append(out, &r.id, 4);
                Append(out, &visible, 1);
                Append(out, &length, 4);
                Append(out, r.name.data(), length);
            }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * ItemsOf(shape));
}

// ---- readers -----------------------------------------------------------

template <class W>
std::vector<unsigned char> QelBytes(Shape shape)
{
    qel::OutputMemoryStream stream;
    {
        W writer(&stream, nullptr);
        WriteShape(writer, shape);
    }
    stream.Flush();
    u32 size = 0;
    const unsigned char* data = stream.GetBuffer(size);
    return std::vector<unsigned char>(data, data + size);
}

template <class W, class R>
void QelRead(benchmark::State& state, Shape shape)
{
    const std::vector<unsigned char> bytes = QelBytes<W>(shape);
    std::vector<u32> words(WordCount);
    std::vector<Record> records(RecordCount);
    for (auto _ : state)
    {
        qel::InputMemoryStream stream(bytes.data(), u32(bytes.size()));
        R reader(&stream, nullptr);
        if (shape == ArrayOfWords)
            reader.Serialize(words.data(), WordCount, 4);
        else if (shape == WordByWord)
            for (u32& word : words)
                reader.Serialize(word);
        else
            for (Record& record : records)
                record.Serialize(reader);
        benchmark::DoNotOptimize(words.data());
        benchmark::DoNotOptimize(records.data());
    }
    state.SetItemsProcessed(state.iterations() * ItemsOf(shape));
}

void CerealRead(benchmark::State& state, Shape shape)
{
    std::ostringstream written;
    {
        cereal::BinaryOutputArchive archive(written);
        if (shape == Records_)
            for (const Record& record : Records())
                archive(record);
        else
            archive(cereal::binary_data(Words().data(), WordCount * sizeof(u32)));
    }
    const std::string bytes = written.str();
    std::vector<u32> words(WordCount);
    std::vector<Record> records(RecordCount);
    for (auto _ : state)
    {
        MemoryBuffer buffer(bytes.data(), bytes.size());
        std::istream stream(&buffer);
        cereal::BinaryInputArchive archive(stream);
        if (shape == ArrayOfWords)
            archive(cereal::binary_data(words.data(), WordCount * sizeof(u32)));
        else if (shape == WordByWord)
            for (u32& word : words)
                archive(word);
        else
            for (Record& record : records)
                archive(record);
        benchmark::DoNotOptimize(words.data());
        benchmark::DoNotOptimize(records.data());
    }
    state.SetItemsProcessed(state.iterations() * ItemsOf(shape));
}

void MemcpyRead(benchmark::State& state, Shape shape)
{
    const std::vector<unsigned char> bytes = QelBytes<qel::BinaryWriter>(shape);
    std::vector<u32> words(WordCount);
    std::vector<Record> records(RecordCount);
    for (auto _ : state)
    {
        const unsigned char* at = bytes.data();
        if (shape == ArrayOfWords)
            std::memcpy(words.data(), at, WordCount * sizeof(u32));
        else if (shape == WordByWord)
            for (u32& word : words)
                std::memcpy(&word, at, 4), at += 4;
        else
            for (Record& r : records)
            {
                u32 length;
                std::memcpy(r.position, at, 12);
                std::memcpy(&r.id, at + 12, 4);
                r.visible = at[16] != 0;
                std::memcpy(&length, at + 17, 4);
                r.name.assign(reinterpret_cast<const char*>(at + 21), length);
                at += 21 + length;
            }
        benchmark::DoNotOptimize(words.data());
        benchmark::DoNotOptimize(records.data());
    }
    state.SetItemsProcessed(state.iterations() * ItemsOf(shape));
}

#define QEL_SHAPES(name)                                                                           \
    BENCHMARK_CAPTURE(name, words_array, ArrayOfWords)->Unit(benchmark::kMillisecond);             \
    BENCHMARK_CAPTURE(name, words_single, WordByWord)->Unit(benchmark::kMillisecond);              \
    BENCHMARK_CAPTURE(name, records, Records_)->Unit(benchmark::kMillisecond)

void QelNativeWrite(benchmark::State& state, Shape shape)
{
    QelWrite<qel::BinaryWriter>(state, shape);
}
void QelSwappedWrite(benchmark::State& state, Shape shape)
{
    QelWrite<qel::BinarySwapperWriter>(state, shape);
}
void QelNativeWriteToBuffer(benchmark::State& state, Shape shape)
{
    QelWriteToBuffer<qel::BinaryWriter>(state, shape);
}
void QelSwappedWriteToBuffer(benchmark::State& state, Shape shape)
{
    QelWriteToBuffer<qel::BinarySwapperWriter>(state, shape);
}
void QelNativeRead(benchmark::State& state, Shape shape)
{
    QelRead<qel::BinaryWriter, qel::BinaryReader>(state, shape);
}
void QelSwappedRead(benchmark::State& state, Shape shape)
{
    QelRead<qel::BinarySwapperWriter, qel::BinarySwapperReader>(state, shape);
}

QEL_SHAPES(QelNativeWrite);
QEL_SHAPES(QelSwappedWrite);
QEL_SHAPES(QelNativeWriteToBuffer);
QEL_SHAPES(QelSwappedWriteToBuffer);
QEL_SHAPES(CerealWrite);
QEL_SHAPES(MemcpyWrite);
QEL_SHAPES(QelNativeRead);
QEL_SHAPES(QelSwappedRead);
QEL_SHAPES(CerealRead);
QEL_SHAPES(MemcpyRead);

} // namespace

BENCHMARK_MAIN();
