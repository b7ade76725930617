// A program's whole life with a streaming request: made, listed with the
// streaming manager, deleted, and the program returns. The exit-time
// teardown that follows must report nothing: no allocator lists a leak.
#include <qel/streamingmanager.h>
#include <qel/streamingrequest.h>

#include <cstring>
#include <string>

int main(int, char** argv)
{
    // The program streams its own file, found through the /exedir/ mount.
    const char* name = argv[0];
    for (const char* c = argv[0]; *c != '\0'; ++c)
        if (*c == '/' || *c == '\\')
            name = c + 1;
    const std::string path = std::string("/exedir/") + name;
    qel::StreamingRequest* request = qel::StreamingRequest::Create(path.c_str(), 1 << 20);
    if (request == nullptr)
        return 1;
    qel::StreamingManager::GetSingletonInstance().Add(request);
    delete request;
    return 0;
}
