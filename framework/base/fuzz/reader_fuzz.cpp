// The readers on any bytes: GenericReader::Create picks the reader from the
// 8-byte tag (or throws UnknownFormat), then a structure of every value
// type, every array form (counts and strides read from the input, within
// bounds) and strings is read. The buffer stream throws BufferOverflow at
// the end of the input, which is an outcome and not a crash; a bool never
// holds anything but 0 or 1.
#include <qel/bufferoverflow.h>
#include <qel/genericreader.h>
#include <qel/inputbufferstream.h>
#include <qel/serializer.h>

#include "fuzzhost.h"
#include "readall.h"

#include <cstdlib>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    qelfuzz::QuietHost::Install();
    qel::InputBufferStream stream(data, data + size);
    try
    {
        std::unique_ptr<qel::Reader> reader(qel::GenericReader::Create(&stream, nullptr));
        qelfuzz::ReadAll(*reader);
    }
    catch (const qel::UnknownFormat&)
    {
    }
    catch (const qel::BufferOverflow&)
    {
    }
    return 0;
}
