// The sections of `qeltool tour`. Each section shows one subsystem at work on
// the sample data and prints what it did.
#pragma once

#include <string>

namespace qeltool
{

struct TourContext
{
    std::string dataDir; // the sample data folder, with a trailing '/'
};

// Prints a section banner.
void Banner(const char* title);

void TourCore(const TourContext& context);
void TourMemory(const TourContext& context);
void TourThread(const TourContext& context);
void TourFiles(const TourContext& context);
void TourStreams(const TourContext& context);
void TourGeometry(const TourContext& context);

// qeltool mounts: the file manager's mount table, one mount a line.
void PrintMountTable();
// qeltool resolve: each virtual path's native path and mount, or the error;
// 1 when one of them is under no mount.
int ResolvePaths(int count, char** paths);

} // namespace qeltool
