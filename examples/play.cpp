#include <kestrel/convert.h>
#include <chrono>
#include <iostream>
#include <thread>

int main(int, char** arguments) try {
  kestrel::Player player({.input = arguments[1]});
  player.play();
  while (!player.isAtEnd()) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  return player.report().isWhole() ? 0 : 3;
} catch (const kestrel::Failure& failure) {
  std::cerr << failure.what() << '\n';
  return 1;
}
