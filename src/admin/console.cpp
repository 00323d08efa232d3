#include "admin/console.h"

#include <array>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>

namespace badgemint::admin {

namespace {

constexpr std::array kSignals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

volatile std::sig_atomic_t arrivedSignal = 0;  // What a handler may use is global.

void rememberSignal(int signal) {
  arrivedSignal = signal;
}

}  // namespace

std::string printable(std::string_view text) {
  std::string shown;
  for (const char c : text)
    if (c >= ' ' && c <= '~')
      shown += c;
    else
      shown += fmt::format("\\x{:02X}", static_cast<uint8_t>(c));
  return shown;
}

void Console::reportText(std::string_view text) {
  _progress.reset();
  _output.flush();
  _errors << (_terminals.errors && _terminals.colours ? "\033[1;31mbadgemint-admin:\033[0m "
                                                      : "badgemint-admin: ");
  for (const char c : text)
    _errors << printable({&c, 1});  // Needs no memory: it may be what is missing.
  _errors << std::endl;
}

void Console::showProgress(const std::string& verb) {
  if (!_terminals.errors) return;
  const BlockedSignals blocked;  // They are for the thread that works.
  const auto work = [&errors = _errors, verb](const std::stop_token& stop) {
    std::mutex mutex;
    std::condition_variable_any wake;
    std::unique_lock lock(mutex);
    const auto waitASecond = [&] {
      wake.wait_for(lock, stop, std::chrono::seconds(1), [] { return false; });
      return !stop.stop_requested();
    };
    int seconds = 0;
    while (waitASecond()) errors << '\r' << verb << ": " << ++seconds << " s" << std::flush;
    if (seconds > 0) errors << "\r\033[K" << std::flush;  // Erases the line.
  };
  try {
    _progress.emplace(work);
  } catch (const std::system_error&) {  // No more threads: the verb works without the line.
  }
}

bool Console::finish() {
  _progress.reset();
  return _output.flush().good();
}

std::string Console::severityText(bool isError) const {
  const char* const word = isError ? "error" : "warning";
  if (!_terminals.output || !_terminals.colours) return word;
  return fmt::format("\033[1;{}m{}\033[0m", isError ? 31 : 35, word);
}

void deferTerminationSignals() {
  struct sigaction action = {}, before = {};
  action.sa_handler = rememberSignal;  // Without SA_RESTART: waiting calls shall end.
  for (const int signal : kSignals) {
    sigaction(signal, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
  }
}

bool isInterrupted() {
  return arrivedSignal != 0;
}

void throwIfInterrupted() {
  if (isInterrupted()) throw NotDone("interrupted: nothing was changed");
}

void deliverDeferredSignal() {
  const int signal = std::exchange(arrivedSignal, 0);
  if (signal == 0) return;
  std::signal(signal, SIG_DFL);
  raise(signal);
}

BlockedSignals::BlockedSignals() {
  sigset_t blocked;
  sigemptyset(&blocked);
  for (const int signal : kSignals) sigaddset(&blocked, signal);
  pthread_sigmask(SIG_BLOCK, &blocked, &_before);
}

BlockedSignals::~BlockedSignals() {
  pthread_sigmask(SIG_SETMASK, &_before, nullptr);
}

}  // namespace badgemint::admin
