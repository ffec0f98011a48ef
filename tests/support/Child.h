// Another process: a program with its standard input and output at the ends of two pipes.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <string>
#include <vector>

class Child {
 public:
  explicit Child(std::vector<std::string> arguments) {
    int in[2], out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0)
      throw std::runtime_error("no pipe");
    std::vector<char*> words;
    for (std::string& one : arguments) words.push_back(one.data());
    words.push_back(nullptr);
    m_id = ::fork();
    if (m_id == 0) {
      ::dup2(in[0], STDIN_FILENO);
      ::dup2(out[1], STDOUT_FILENO);
      ::execv(words[0], words.data());
      ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    m_in = in[1];
    m_out = out[0];
    if (m_id < 0) throw std::runtime_error("no process");
  }
  ~Child() {
    Kill();
    ::close(m_out);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // The next character that it tells; 0 at the end.
  char Next() {
    char next = 0;
    while (::read(m_out, &next, 1) < 0 && errno == EINTR) continue;
    return next;
  }
  std::string Line() {
    std::string line;
    for (char next = Next(); next != 0 && next != '\n'; next = Next()) line += next;
    return line;
  }
  void Say(const std::string& line) {
    if (::write(m_in, (line + "\n").c_str(), line.size() + 1) < 0)
      throw std::runtime_error("it does not listen");
  }
  // Ends its input and waits; the exit code, or minus the signal that ended it.
  int Wait() {
    if (m_id <= 0) return m_code;
    ::close(m_in);
    int status = 0;
    while (::waitpid(m_id, &status, 0) < 0 && errno == EINTR) continue;
    m_id = 0;
    return m_code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  int Kill() {
    if (m_id > 0) ::kill(m_id, SIGKILL);
    return Wait();
  }

 private:
  pid_t m_id = 0;
  int m_in = -1, m_out = -1, m_code = 0;
};
