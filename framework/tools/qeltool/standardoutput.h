// An output stream onto standard output, written a block at a time so that a
// big text is never held whole.
#pragma once

#include <qel/outputstream.h>
#include <qel/provider.h>

#include <cstdio>

namespace qeltool
{

class StandardOutput : public qel::OutputStream
{
public:
    StandardOutput() : OutputStream(&m_Sink) {}
    ~StandardOutput() override { Finish(); }

private:
    struct Sink : qel::Provider
    {
        Sink() { m_Open = true; }
        void Request(qel::u64, unsigned char*& block, unsigned char*& current,
                     unsigned char*& end) override
        {
            block = current = buffer;
            end = buffer + sizeof buffer;
        }
        void Return(void* block, void* end) override
        {
            std::fwrite(block, 1, std::size_t(static_cast<unsigned char*>(end) - buffer), stdout);
        }
        void Return(void* block) override { Return(block, buffer + sizeof buffer); }
        unsigned char buffer[65536];
    } m_Sink;
};

} // namespace qeltool
