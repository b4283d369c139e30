// tmxtool: makes and inspects programmes from the command line.
#include <clocale>
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "mux.h"

namespace tmxtool {

int Usage() {
  std::fprintf(stderr,
               "usage: tmxtool info PROGRAMME [--json]\n"
               "       tmxtool chapters PROGRAMME\n"
               "       tmxtool cover PROGRAMME -o COVER.jpg\n"
               "       tmxtool mux INPUT.aac -o OUT.tmx [options]\n"
               "       tmxtool extract PROGRAMME -o OUT.aac\n"
               "       tmxtool decode PROGRAMME -o OUT.wav\n"
               "       tmxtool position PROGRAMME [--set MS]\n"
               "       tmxtool bookmarks PROGRAMME list|add MS [--note TEXT]|delete N|seek N\n");
  return 2;
}

}  // namespace tmxtool

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");
  if (argc < 2) return tmxtool::Usage();
  struct Command {
    const char* name;
    int (*run)(int, char**);
  };
  static const Command kCommands[] = {
      {"info", tmxtool::Info},         {"chapters", tmxtool::Chapters},
      {"cover", tmxtool::Cover},       {"mux", Mux},
      {"extract", tmxtool::Extract},   {"decode", tmxtool::Decode},
      {"position", tmxtool::Position}, {"bookmarks", tmxtool::Bookmarks},
  };
  for (const Command& c : kCommands)
    if (std::strcmp(argv[1], c.name) == 0) return c.run(argc - 2, argv + 2);
  return tmxtool::Usage();
}
