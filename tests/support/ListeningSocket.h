#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

namespace kestrel::test {

/// A server on this machine that answers nobody, and notices who asks.
class ListeningSocket {
 public:
  ListeningSocket() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (socket_ < 0 || bind(socket_, generic, size) != 0 || listen(socket_, 8) != 0 ||
        getsockname(socket_, generic, &size) != 0)
      throw std::runtime_error("no socket to listen on");
    port_ = ntohs(address.sin_port);
  }
  ~ListeningSocket() { close(socket_); }
  ListeningSocket(const ListeningSocket&) = delete;
  ListeningSocket& operator=(const ListeningSocket&) = delete;

  /// "http://127.0.0.1:4711/name".
  std::string address(const std::string& name) const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/" + name;
  }

  /// Whether anybody waits to be let in.
  bool wasAsked() const {
    pollfd waiting{socket_, POLLIN, 0};
    return poll(&waiting, 1, 0) > 0;
  }

 private:
  int socket_;
  int port_ = 0;
};

}  // namespace kestrel::test
