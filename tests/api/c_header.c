/* The public header is plain C; this program uses it from C through the
   shared library. */
#include <stdio.h>

#include "tmxsdk.h"

int main(void) {
  TMXFile* file = NULL;
  uint32_t value = 0;
  TMXStream stream;
  TMXFrameInfo info = {0, 0, 0, 0, 0, 0};
  if (TMXGetDuration(NULL, &value) != TMX_ERR_HANDLE) return 1;
  if (TMXOpenFile(&file, NULL, NULL) != TMX_ERR_STREAM_OPS) return 2;
  if (TMXInitInputStream(&stream) != &stream || stream.ops == NULL) return 3;
  if (TMXCloseFile(NULL) != TMX_ERR_HANDLE) return 4;
  if (sizeof info != 24) return 5;
  puts("ok");
  return 0;
}
