// A raw socket HTTP server that keeps the exact bytes each request put on the wire.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qipg_test {

// A socket listening on 127.0.0.1 at an ephemeral port, which goes to `port`. Aborts the test
// program when there is none to be had.
inline int loopbackListener(int& port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  if (::bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      ::listen(listener, 64) != 0 ||
      ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    std::abort();
  }
  port = ntohs(address.sin_port);
  return listener;
}

// Listens on 127.0.0.1 (ephemeral port) and serves one connection at a time: reads a request
// (head, then Content-Length bytes), keeps it, then sends `answer` (a byte at a time every
// 200 ms when `trickle`) and closes, or with an empty `answer` says nothing until the client
// closes the connection. Stopped and joined on scope exit.
class CaptureServer {
 public:
  explicit CaptureServer(std::string answer, bool trickle = false)
      : answer_(std::move(answer)), trickle_(trickle) {
    listener_ = loopbackListener(port_);
    if (::pipe(stop_) != 0) std::abort();
    thread_ = std::thread([this] { serve(); });
  }
  ~CaptureServer() {
    (void)!::write(stop_[1], "x", 1);
    thread_.join();
    for (int fd : {listener_, stop_[0], stop_[1]}) ::close(fd);
  }

  static std::string answer(const std::string& body, int status = 200) {
    return "HTTP/1.1 " + std::to_string(status) +
           " X\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\nConnection: close\r\n\r\n" + body;
  }
  int port() const { return port_; }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/ipg/x"; }
  // Blocks until `count` requests have arrived and returns them all.
  std::vector<std::string> requests(std::size_t count) {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [&] { return requests_.size() >= count; });
    return requests_;
  }
  std::size_t connections() {
    std::lock_guard lock(mutex_);
    return requests_.size();
  }
  // Blocks until the client has closed `count` connections the server left unanswered.
  void closedByClient(std::size_t count) {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [&] { return closed_ >= count; });
  }

 private:
  bool readable(int fd, int timeoutMs = -1) {
    pollfd fds[2] = {{fd, POLLIN, 0}, {stop_[0], POLLIN, 0}};
    while (::poll(fds, 2, timeoutMs) < 0) {
    }
    return fds[1].revents == 0;
  }

  void serve() {
    while (readable(listener_)) {
      const int fd = ::accept(listener_, nullptr, nullptr);
      std::string request;
      std::size_t wanted = std::string::npos;
      char buffer[65536];
      while (request.size() < wanted && readable(fd)) {
        const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
        if (got <= 0) break;
        request.append(buffer, static_cast<std::size_t>(got));
        const std::size_t head = request.find("\r\n\r\n");
        const std::size_t length = request.find("\r\nContent-Length: ");
        if (head != std::string::npos) {
          wanted = head + 4 + (length < head ? std::stoul(request.substr(length + 18)) : 0);
        }
      }
      {
        std::lock_guard lock(mutex_);
        requests_.push_back(request);
        arrived_.notify_all();
      }
      if (answer_.empty()) {
        while (readable(fd) && ::recv(fd, buffer, sizeof buffer, 0) > 0) {
        }
        std::lock_guard lock(mutex_);
        ++closed_;
        arrived_.notify_all();
      }
      for (std::size_t sent = 0; sent < answer_.size();) {
        const std::size_t chunk = trickle_ ? 1 : answer_.size() - sent;
        const ssize_t n = ::send(fd, answer_.data() + sent, chunk, MSG_NOSIGNAL);
        if (n <= 0 || (trickle_ && !readable(stop_[0], 200))) break;
        sent += static_cast<std::size_t>(n);
      }
      ::close(fd);
    }
  }

  std::string answer_;
  bool trickle_;
  int listener_ = -1, stop_[2] = {-1, -1}, port_ = 0;
  std::size_t closed_ = 0;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<std::string> requests_;
  std::thread thread_;
};

}  // namespace qipg_test
