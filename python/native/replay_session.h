// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

#include "call_lock.h"
#include "frame.h"

namespace orva_python {

/// A recording whose frames are played one by one. The frame that is likely to be asked for next is decoded
/// while Python works on the one before; the replay thread then waits in its callback until that frame is
/// taken, and uses no processor time meanwhile.
template <typename PC>
class ReplaySession {
 public:
  /// Throws Refused when the driver does not take the file.
  explicit ReplaySession(const DriverParam& param);
  ~ReplaySession() { Close(); }
  ReplaySession(const ReplaySession&) = delete;
  ReplaySession& operator=(const ReplaySession&) = delete;

  /// Reads the file to its end. Returns the number of frames; a last one without any point does not count.
  int Index(const Check& check);

  /// The clouds of `frame`: one, except where a frame is so short that it ends within its first packet.
  /// `next` is decoded ahead.
  std::vector<Frame<PC>> Play(int frame, int next, const Check& check);

  DriverStatistics Statistics(const Check& check);

  /// Ends the replay thread. Calls that wait in other threads throw Closed. Harmless when repeated.
  void Close();
  bool InOwnProcess() const { return calls_.InOwnProcess(); }

 private:
  std::shared_ptr<PC> Get();
  void Put(std::shared_ptr<PC> cloud);
  void LetGo();
  void EndThread();
  void Finish(int next, const Check& check);
  void RequireProgress(const DriverStatistics& before, std::chrono::steady_clock::time_point since);
  std::vector<Frame<PC>> Tidy(int frame, std::vector<Frame<PC>> clouds) const;

  const DriverParam param_;
  CallLock calls_;

  std::mutex mutex_;
  std::condition_variable changed_;
  Frame<PC> waiting_;  ///< finished; the replay thread stands still until it is taken
  bool closing_ = false;

  // Of the thread that has the call lock.
  int playing_ = -1;                  ///< frame that was asked for last
  std::vector<Frame<PC>> collected_;  ///< clouds of its play so far
  int frames_ = 0;                    ///< as the driver counts them
  /// Its play follows one that went to the recording's end. That ends no frame: what it left in the decoder,
  /// such as a time, is in this one.
  bool after_end_ = false;

  // Of the replay thread.
  std::size_t usual_size_ = 0;
  double received_ = 0.0;
  bool calibrated_ = false;  ///< fixed by Index

  OrvaDriver<PC> driver_;  ///< last: its thread ends before what it uses
};

}  // namespace orva_python
