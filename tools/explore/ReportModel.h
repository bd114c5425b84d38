#pragma once

#include <vector>

namespace kx {

/// When reports are made, said again in the simplest way: what the library is held against.
class ReportModel {
 public:
  ReportModel() { schedule(); }

  void timePasses(double seconds) { now_ += seconds; }
  void entersBackground();
  void entersForeground();
  void hostReports(unsigned times) { made_ += times; }
  /// The main loop runs: what is due comes now, once, however late.
  void mainLoopRuns();

  unsigned made() const { return made_; }

 private:
  void schedule();

  double now_ = 0;
  double repeatsFrom_ = 0;
  double nextRepeating_ = 0;
  bool repeating_ = false;
  std::vector<double> early_;  ///< when the reports 5 s after a start or a return are due
  unsigned made_ = 0;
};

}  // namespace kx
