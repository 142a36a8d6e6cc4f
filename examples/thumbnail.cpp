#include <kestrel/convert.h>

int main(int, char** arguments) {
  kestrel::Pictures pictures({.input = arguments[1]});
  kestrel::writePicture(arguments[2], *pictures.pictureAt(2'500'000));  // microseconds
}
