// servicing_session.h - the bracket around every driver operation: initialise, open a session on
// the image, work, commit, close, shut down; and the exit that every failure takes.
#pragma once

#include "report/step_reporter.h"

#include <windows.h>

#include <dismapi.h>

namespace kestro::library {

// An operation takes the steps in order and leaves by End, or by Exit as soon as one has failed.
// Nothing is released behind the operation's back: clean-up is a fixed sequence that hosts read in
// the ResultFile.
class ServicingSession {
  public:
    explicit ServicingSession(StepReporter& report) : report_(report) {}
    ServicingSession(const ServicingSession&) = delete;
    ServicingSession& operator=(const ServicingSession&) = delete;

    // Initialises the API and opens the image. A good open leaves no section.
    bool Open(const wchar_t* ImagePath, const wchar_t* LogFilePath);
    // A good commit leaves no section.
    bool Commit();
    // Closes the session, whatever comes of it, and shuts down; a failing shutdown takes the exit.
    Outcome End();

    // The failed step's Result=ERR, then the clean-up.
    Outcome Exit();
    // Closes and shuts down whatever has happened before, also what was never opened or is closed
    // already. Its reports carry result, the code of the step that failed first.
    Outcome CleanUp(HRESULT result);

    DismSession Handle() const { return session_; }

  private:
    StepReporter& report_;
    DismSession session_ = 0;
};

} // namespace kestro::library
