#include <kestrel/convert.h>
#include <iostream>

int main(int, char** arguments) try {
  kestrel::Pictures pictures({.input = arguments[1]});
  kestrel::writePicture(arguments[2], *pictures.pictureAt(2'500'000));  // microseconds
} catch (const kestrel::Failure& failure) {
  std::cerr << failure.what() << '\n';
  return 1;
}
