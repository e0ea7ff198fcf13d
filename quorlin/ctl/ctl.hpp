// quorlinctl: every operation of the service from the shell, for people (aligned tables) and
// for scripts (--json), with exit statuses a script can test.
#ifndef QUORLIN_CTL_CTL_HPP
#define QUORLIN_CTL_CTL_HPP

namespace quorlin::ctl {

/// What the process's exit status says.
enum ExitStatus : int {
  EXIT_OK = 0,
  EXIT_REFUSED = 1,      ///< the service answered with a failure (a negative result)
  EXIT_USAGE = 2,        ///< the command line is wrong
  EXIT_UNREACHABLE = 3,  ///< no connection to the service
  EXIT_UNUSABLE = 4,     ///< the reply could not be used
  EXIT_TIMED_OUT = 5,    ///< the connect or a reply took longer than the time-out
};

/// Runs the command line and returns the exit status. Data goes to standard output, one-line
/// messages to standard error.
int quorlinctl_main(int argc, char** argv);

}  // namespace quorlin::ctl

#endif  // QUORLIN_CTL_CTL_HPP
