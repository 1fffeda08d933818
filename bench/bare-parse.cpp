//===- bare-parse.cpp - The hardware's pace for reading a track file -------===//
//
// Reads the file in 1 MB blocks and converts the twelve fields of every line with
// std::from_chars, nothing else: the speed a track reader cannot beat.
//
//===----------------------------------------------------------------------------===//

#include <charconv>
#include <cstdio>
#include <cstring>
#include <vector>

int main(int argc, char **argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: bare-parse FILE\n");
    return 2;
  }
  FILE *file = fopen(argv[1], "rb");
  if (!file)
    return 1;
  std::vector<char> buffer(1 << 20);
  size_t filled = 0;
  long lines = 0;
  double sum = 0;
  for (;;) {
    size_t count = fread(buffer.data() + filled, 1, buffer.size() - filled, file);
    filled += count;
    char *p = buffer.data(), *end = p + filled;
    char *newline;
    while ((newline = static_cast<char *>(memchr(p, '\n', size_t(end - p))))) {
      if (*p != '#') {
        for (int field = 0; field < 12 && p < newline; ++field) {
          while (*p == ' ')
            ++p;
          double value = 0;
          p = const_cast<char *>(std::from_chars(p, newline, value).ptr);
          sum += value;
        }
        ++lines;
      }
      p = newline + 1;
    }
    filled = size_t(end - p);
    memmove(buffer.data(), p, filled);
    if (count == 0)
      break;
  }
  fclose(file);
  printf("%ld lines, checksum %g\n", lines, sum);
  return 0;
}
