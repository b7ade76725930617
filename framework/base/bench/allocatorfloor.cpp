#include "allocatorfloor.h"

namespace qelbench
{
namespace floor
{

__thread Lists t_Lists __attribute__((tls_model("initial-exec")));

namespace
{

struct ThreadEnd
{
    bool armed = false;

    ~ThreadEnd()
    {
        if (armed)
            GiveBack();
    }
};

thread_local ThreadEnd t_End;

} // namespace

void KeepForThreadEnd()
{
    t_End.armed = true;
}

// The General allocator frees blocks of the pool too.
void GiveBack()
{
    qel::Allocator* allocator = qel::Mem::GetGeneralAlloc();
    for (void*& head : t_Lists.pool)
        while (void* block = Pop(head))
            allocator->Free(block);
    for (void*& head : t_Lists.packed)
        while (void* block = Pop(head))
            allocator->Free(block);
}

Model* Pool()
{
    static PoolModel model(qel::Mem::GetSmallAlloc());
    return &model;
}

Model* General()
{
    static GeneralModel model(qel::Mem::GetGeneralAlloc());
    return &model;
}

} // namespace floor
} // namespace qelbench
