#pragma once

#include <array>
#include <string>
#include <vector>

/// Starting and awaiting of child processes. Every operation reports 0, or the `errno` value of what failed.
/// Any thread; no setting of the process is changed.
namespace qm_platform {

/// The value that stands for "no child".
constexpr int kNoChild = -1;

/// Makes a pipe whose ends are close-on-exec. Both are `kNoDescriptor` after a failure.
int makePipe(int& readEnd, int& writeEnd) noexcept;

/// A copy of this process's environment, "NAME=value" each, in its own order.
int copyEnvironment(std::vector<std::string>& environment);

/// What a child is started with.
struct ChildPlan {
  /// The program and its arguments. A program without a slash is looked for along PATH. No shell takes part.
  std::vector<std::string> arguments;
  std::vector<std::string> environment;

  /// Descriptors that become the child's standard input, output and error; `kNoDescriptor` gives it the null
  /// device. They stay open here. Each must be above 2.
  std::array<int, 3> standard;
};

/// Starts a child: in a session of its own, so that no terminal's signals reach it, with the default action
/// for every signal and no descriptor but its standard ones. A program that can't be run is an error of this
/// call. `child` is `kNoChild` after a failure.
int startChild(const ChildPlan& plan, int& child);

/// Waits until a child has ended, or with `block` clear only looks: `ended` tells. Its exit code stays to be
/// taken.
int awaitChild(int child, bool block, bool& ended) noexcept;

/// Takes the exit code of a child that has ended, once: its own, or 128 and the number of the signal that
/// ended it.
int takeExitCode(int child, int& exitCode) noexcept;

/// Gives up a child whose exit code wasn't taken: it runs on, and what the system keeps of it is given back
/// when it has ended, at the latest when the next child is started or given up.
void abandonChild(int child);

}  // namespace qm_platform
