// The tmxtool commands. Each takes the arguments after its name and returns
// the exit status: 0 done, 1 failed, 2 bad usage.
#pragma once

namespace tmxtool {

int Info(int argc, char** argv);
int Chapters(int argc, char** argv);
int Cover(int argc, char** argv);
int Extract(int argc, char** argv);
int Decode(int argc, char** argv);
int Position(int argc, char** argv);
int Bookmarks(int argc, char** argv);
// Prints the usage text; returns 2.
int Usage();

}  // namespace tmxtool
