// Streaming requests: the metered chunk of Read, the limits of the total and
// the ring, Reset, the refused creations, the path forms, and the file a
// request owns.
#include <qel/fileexception.h>
#include <qel/filemanager.h>
#include <qel/streamingrequest.h>

#include "memoryfile.h"
#include "support/environment.h"
#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <string>
#include <vector>

namespace
{

using qel::StreamingRequest;
using qel::u32;
using streamtest::MemoryFile;
using streamtest::PatternByte;

TEST(StreamingRequestTest, ReadTakesAtMostHalfTheRateAndAQuarterWhenAhead)
{
    MemoryFile* file = new MemoryFile(100000);
    StreamingRequest* request = StreamingRequest::Create(file, 1000, 8192);
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->Read(10000), 500u) << "far behind: capped at half the rate";
    EXPECT_EQ(request->Read(0), 250u) << "ahead: a quarter of the rate";
    EXPECT_EQ(request->Read(750), 250u) << "on target: still a quarter";
    EXPECT_EQ(request->Read(1100), 100u) << "behind by 100";
    EXPECT_EQ(request->BytesRead(), 1100u);
    EXPECT_EQ(request->BytesRemaining(), 100000u - 1100u);
    EXPECT_EQ(request->DataAvailable(), 1100u);
    // A target below what was read (and a negative one) is ahead, not huge.
    EXPECT_EQ(request->Read(-5), 250u);

    // The first bytes used in place, the rest copied out after them.
    const void* data = nullptr;
    ASSERT_EQ(request->Peek(data), 1350u);
    for (u32 i = 0; i < 350; ++i)
        ASSERT_EQ(static_cast<const unsigned char*>(data)[i], PatternByte(i)) << i;
    EXPECT_EQ(request->Skip(350), 350u);
    std::vector<unsigned char> out(2000);
    ASSERT_EQ(request->Copy(out.data(), 2000), 1000u);
    for (u32 i = 0; i < 1000; ++i)
        ASSERT_EQ(out[i], PatternByte(350 + i)) << i;
    delete request;
}

TEST(StreamingRequestTest, TotalAndRingBoundWhatIsReadAndResetStartsOver)
{
    MemoryFile* file = new MemoryFile(5000);
    // From offset 1000, 600 bytes, through a ring of capacity 399.
    StreamingRequest* request = StreamingRequest::Create(file, 2000, 400, 1000, 600);
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->BufferCapacity(), 399u);
    EXPECT_EQ(request->Read(100000), 399u) << "the ring is full before half the rate";
    EXPECT_EQ(request->Read(100000), 0u);
    std::vector<unsigned char> out(600);
    EXPECT_EQ(request->Copy(out.data(), 600), 399u);
    EXPECT_EQ(request->Read(100000), 201u) << "only the total's rest";
    EXPECT_EQ(request->BytesRemaining(), 0u);
    EXPECT_EQ(request->Read(100000), 0u);
    EXPECT_EQ(request->Copy(out.data() + 399, 201), 201u);
    for (u32 i = 0; i < 600; ++i)
        ASSERT_EQ(out[i], PatternByte(1000 + i)) << i;

    request->Read(0);
    request->Reset(100);
    EXPECT_EQ(request->BytesRead(), 0u);
    EXPECT_EQ(request->BytesRemaining(), 500u);
    EXPECT_EQ(request->DataAvailable(), 0u);
    EXPECT_EQ(file->GetFilePosition(), 100u);
    EXPECT_EQ(request->Read(10), 10u);
    ASSERT_EQ(request->Copy(out.data(), 10), 10u);
    EXPECT_EQ(out[0], PatternByte(100));
    request->Reset(700); // past the total: nothing left, no wrap-around
    EXPECT_EQ(request->BytesRemaining(), 0u);
    EXPECT_EQ(request->Read(1000), 0u);
    delete request;
}

TEST(StreamingRequestTest, RefusedArgumentsAssertReturnNullAndCloseTheFile)
{
    qeltest::ScriptedHost host;
    std::atomic<int> closed{0};
    EXPECT_EQ(StreamingRequest::Create(new MemoryFile(10, &closed), 3, 64), nullptr);
    EXPECT_EQ(StreamingRequest::Create(new MemoryFile(10, &closed), 1000, 1), nullptr);
    EXPECT_EQ(StreamingRequest::Create(static_cast<qel::File*>(nullptr), 1000), nullptr);
    EXPECT_EQ(closed.load(), 2);
    const std::vector<std::string> asserts = streamtest::FailedAsserts(host);
    ASSERT_EQ(asserts.size(), 3u);
    EXPECT_NE(asserts[0].find("dataRate >= 4"), std::string::npos);
    EXPECT_NE(asserts[1].find("bufferSize >= 2"), std::string::npos);
    EXPECT_NE(asserts[2].find("file != nullptr"), std::string::npos);

    StreamingRequest* request = StreamingRequest::Create(new MemoryFile(10, &closed), 100);
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(closed.load(), 2);
    delete request;
    EXPECT_EQ(closed.load(), 3) << "the request owns its file";
}

TEST(StreamingRequestTest, RingThatCannotBeAllocatedReportsNothingAvailable)
{
    qeltest::ScriptedHost host; // answers the allocation failure and counts the exit
    StreamingRequest* request = StreamingRequest::Create(new MemoryFile(100), 1000, 0xFFFFFFF0u);
    ASSERT_NE(request, nullptr);
    if (request->BufferCapacity() != 0)
    {
        delete request;
        GTEST_SKIP() << "this host gave 4 GB to the ring";
    }
    EXPECT_GE(host.exits, 1) << "the failed allocation is a fatal error";
    EXPECT_EQ(request->Read(1000), 0u);
    EXPECT_EQ(request->DataAvailable(), 0u);
    unsigned char byte = 0;
    EXPECT_EQ(request->Copy(&byte, 1), 0u);
    const void* data = &byte;
    EXPECT_EQ(request->Peek(data), 0u);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(request->Skip(1), 0u);
    delete request;
}

TEST(StreamingRequestTest, PathFormsOpenTheFileAndAMissingOneThrows)
{
    qeltest::TemporaryFolder folder;
    const std::string root = folder.VirtualPath();
    std::ofstream(folder.Path() + "data.bin", std::ios::binary) << std::string(1000, 'x') + "tail";
    StreamingRequest* request = StreamingRequest::Create((root + "data.bin").c_str(), 64, 16, 1000);
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->BytesRemaining(), 1004u);
    EXPECT_EQ(request->Read(100), 4u) << "the file ends 4 bytes after the offset";
    char text[5] = {};
    EXPECT_EQ(request->Copy(text, 4), 4u);
    EXPECT_STREQ(text, "tail");
    delete request;

    EXPECT_THROW(StreamingRequest::Create((root + "missing.bin").c_str(), 64),
                 qel::FileNotFoundException);
}

} // namespace
