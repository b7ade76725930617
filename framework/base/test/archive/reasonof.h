// The text of the error a call raises, for the archive tests.
#pragma once

#include <qel/exception.h>
#include <qel/genericreader.h>

#include <string>

namespace archivetest
{

template <class Call>
std::string ReasonOf(Call call)
{
    try
    {
        call();
    }
    catch (const qel::Exception& e)
    {
        return e.GetReason();
    }
    catch (const qel::UnknownFormat&)
    {
        return "UnknownFormat";
    }
    return "no exception";
}

} // namespace archivetest
