#include <qel/exception.h>

#include <cstring>

namespace qel
{

bool Exception::ms_showWarnings = true;

Exception::Exception()
{
    m_Reason[0] = '\0';
}

Exception::Exception(const char* reason)
{
    SetReason(reason);
}

Exception::Exception(const Exception& other)
{
    std::memcpy(m_Reason, other.m_Reason, ReasonSize);
}

Exception& Exception::operator=(const Exception& other)
{
    std::memcpy(m_Reason, other.m_Reason, ReasonSize);
    return *this;
}

void Exception::SetReason(const char* reason)
{
    size_t length = reason ? std::strlen(reason) : 0;
    if (length > ReasonSize - 1)
        length = ReasonSize - 1;
    if (length > 0)
        std::memcpy(m_Reason, reason, length);
    m_Reason[length] = '\0';
}

MemoryException::MemoryException() : Exception("There is not enough memory!") {}

} // namespace qel
