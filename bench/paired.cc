// The paired runner: options, interleaved repetitions, medians and the report.
#include "paired.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <utility>

namespace qzbench {

namespace {

void usage(const std::string& program, FILE* out) {
  std::fprintf(out,
               "usage: %s [--repetitions N] [--size N]... [--sweep] [--smoke] [--filter TEXT]\n"
               "  Runs each case with its raw baseline interleaved and prints the median of\n"
               "  the paired ratios (library time / raw time). See bench/README.md.\n",
               program.c_str());
}

long parseCount(const std::string& program, const char* option, const char* value) {
  char* end = nullptr;
  const long parsed = value != nullptr ? std::strtol(value, &end, 10) : 0;
  if (value == nullptr || *value == '\0' || *end != '\0' || parsed <= 0) {
    std::fprintf(stderr, "%s: %s needs a positive number\n", program.c_str(), option);
    usage(program, stderr);
    std::exit(2);
  }
  return parsed;
}

std::string sizeText(long n) {
  if (n >= 1000 && n % 1000 == 0) return std::to_string(n / 1000) + "k";
  return std::to_string(n);
}

}  // namespace

double timeMs(const std::function<bool()>& run) {
  const auto start = std::chrono::steady_clock::now();
  const bool ok = run();
  const auto end = std::chrono::steady_clock::now();
  if (!ok) return -1;
  return std::chrono::duration<double, std::milli>(end - start).count();
}

double median(std::vector<double>* values) {
  if (values->empty()) return 0;
  std::sort(values->begin(), values->end());
  const std::size_t middle = values->size() / 2;
  if (values->size() % 2 == 1) return (*values)[middle];
  return ((*values)[middle - 1] + (*values)[middle]) / 2;
}

std::string formatMs(double ms) {
  char text[32];
  if (ms >= 1000) {
    std::snprintf(text, sizeof text, "%.2f s", ms / 1000);
  } else if (ms >= 1) {
    std::snprintf(text, sizeof text, "%.1f ms", ms);
  } else {
    std::snprintf(text, sizeof text, "%.1f us", ms * 1000);
  }
  return text;
}

Runner::Runner(int argc, char** argv, const std::string& program, const std::string& unit,
               std::vector<long> sizes, std::vector<long> sweepSizes, long smokeSize)
    : program_(program), unit_(unit), sizes_(std::move(sizes)) {
  std::vector<long> given;
  bool repetitionsGiven = false;
  for (int index = 1; index < argc; ++index) {
    const std::string option = argv[index];
    const char* value = index + 1 < argc ? argv[index + 1] : nullptr;
    if (option == "--repetitions") {
      repetitions_ = static_cast<int>(parseCount(program_, "--repetitions", value));
      repetitionsGiven = true;
      ++index;
    } else if (option == "--size") {
      given.push_back(parseCount(program_, "--size", value));
      ++index;
    } else if (option == "--sweep") {
      sweep_ = true;
    } else if (option == "--smoke") {
      smoke_ = true;
    } else if (option == "--filter") {
      if (value == nullptr) {
        usage(program_, stderr);
        std::exit(2);
      }
      filter_ = value;
      ++index;
    } else if (option == "--help" || option == "-h") {
      usage(program_, stdout);
      std::exit(0);
    } else {
      std::fprintf(stderr, "%s: unknown option %s\n", program_.c_str(), option.c_str());
      usage(program_, stderr);
      std::exit(2);
    }
  }
  if (smoke_ + sweep_ + !given.empty() > 1) {
    std::fprintf(stderr, "%s: --smoke, --sweep and --size exclude each other\n", program_.c_str());
    std::exit(2);
  }
  if (smoke_) {
    sizes_ = {smokeSize};
    if (!repetitionsGiven) repetitions_ = 1;
  } else if (sweep_) {
    sizes_ = std::move(sweepSizes);
  } else if (!given.empty()) {
    sizes_ = std::move(given);
  }
  std::printf("%s: %d repetition%s per case, library and raw baseline interleaved\n",
              program_.c_str(), repetitions_, repetitions_ == 1 ? "" : "s");
  std::fflush(stdout);
}

bool Runner::wants(const std::string& caseName) const {
  return filter_.empty() || caseName.find(filter_) != std::string::npos;
}

bool Runner::run(long n, const Case& c) {
  if (!wants(c.name)) return true;
  std::vector<double> library;
  std::vector<double> raw;
  std::vector<double> ratios;
  bool failed = false;
  for (int repetition = 0; repetition < repetitions_ && !failed; ++repetition) {
    double times[2] = {0, 0};  // library, raw
    for (int turn = 0; turn < 2 && !failed; ++turn) {
      // Odd repetitions run the baseline first.
      const int side = repetition % 2 == 0 ? turn : 1 - turn;
      const Work& work = side == 0 ? c.library : c.raw;
      if (work.prepare && !work.prepare()) {
        failed = true;
        break;
      }
      times[side] = timeMs(work.run);
      if (times[side] < 0) failed = true;
    }
    if (failed) break;
    library.push_back(times[0]);
    raw.push_back(times[1]);
    ratios.push_back(times[1] > 0 ? times[0] / times[1] : 0);
  }
  const double perRun = c.operations > 0 ? static_cast<double>(c.operations) : 1;
  Result result{n,         c.name,   c.rawName,    median(&library) / perRun,
                median(&raw) / perRun, c.operations, median(&ratios), c.target, failed};
  results_.push_back(result);
  if (failed) {
    failed_ = true;
    std::fprintf(stderr, "%s: %s (%ld %s) failed\n", program_.c_str(), c.name.c_str(), n,
                 unit_.c_str());
  } else {
    std::printf("  %-44s %7s  %10s  raw %10s  ratio %5.2f\n", c.name.c_str(),
                sizeText(n).c_str(), formatMs(result.library).c_str(),
                formatMs(result.raw).c_str(), result.ratio);
  }
  std::fflush(stdout);
  return !failed;
}

double Runner::measure(long n, const std::string& name, const Work& work) {
  if (!wants(name)) return 0;
  std::vector<double> times;
  bool failed = false;
  for (int repetition = 0; repetition < repetitions_ && !failed; ++repetition) {
    if (work.prepare && !work.prepare()) {
      failed = true;
      break;
    }
    const double ms = timeMs(work.run);
    if (ms < 0) failed = true;
    times.push_back(ms);
  }
  const double value = failed ? -1 : median(&times);
  results_.push_back(Result{n, name, std::string(), value, 0, 0, 0, 0, failed});
  if (failed) {
    failed_ = true;
    std::fprintf(stderr, "%s: %s (%ld %s) failed\n", program_.c_str(), name.c_str(), n,
                 unit_.c_str());
  } else {
    std::printf("  %-44s %7s  %10s\n", name.c_str(), sizeText(n).c_str(),
                formatMs(value).c_str());
  }
  std::fflush(stdout);
  return value;
}

void Runner::note(long n, const std::string& name, const std::string& text) {
  notes_.push_back(Note{n, name, text});
  std::printf("  %-44s %7s  %s\n", name.c_str(), sizeText(n).c_str(), text.c_str());
  std::fflush(stdout);
}

void Runner::fail(long n, const std::string& what) {
  failed_ = true;
  results_.push_back(Result{n, what, std::string(), 0, 0, 0, 0, 0, true});
  std::fprintf(stderr, "%s: %s (%ld %s) failed\n", program_.c_str(), what.c_str(), n,
               unit_.c_str());
}

void Runner::printResults() const {
  std::printf("\n%s: medians of %d repetition%s; ratio = median of library/raw per repetition\n",
              program_.c_str(), repetitions_, repetitions_ == 1 ? "" : "s");
  for (long n : sizes_) {
    std::printf("\n%ld %s\n", n, unit_.c_str());
    std::printf("  %-44s %10s  %-34s %10s  %6s  %s\n", "library", "time", "raw baseline", "time",
                "ratio", "target");
    for (const Result& result : results_) {
      if (result.n != n) continue;
      if (result.failed) {
        std::printf("  %-44s %10s\n", result.name.c_str(), "FAILED");
        continue;
      }
      if (result.rawName.empty()) {
        std::printf("  %-44s %10s\n", result.name.c_str(), formatMs(result.library).c_str());
        continue;
      }
      char target[32] = "";
      if (result.target > 0) {
        std::snprintf(target, sizeof target, "<= %.2f %s", result.target,
                      result.ratio <= result.target ? "met" : "NOT MET");
      }
      std::printf("  %-44s %10s  %-34s %10s  %6.2f  %s\n", result.name.c_str(),
                  formatMs(result.library).c_str(), result.rawName.c_str(),
                  formatMs(result.raw).c_str(), result.ratio, target);
    }
    for (const Note& note : notes_) {
      if (note.n == n) std::printf("  %-44s %s\n", note.name.c_str(), note.text.c_str());
    }
  }
}

void Runner::printSweep() const {
  if (sizes_.size() < 2) return;
  // Per case, the sizes in order.
  std::vector<std::string> order;
  std::map<std::string, std::vector<const Result*>> byCase;
  for (const Result& result : results_) {
    if (result.failed) continue;
    if (byCase.find(result.name) == byCase.end()) order.push_back(result.name);
    byCase[result.name].push_back(&result);
  }
  std::printf("\nCost per item (%s); slope = cost per item at the largest size / at the one "
              "before (1.00: linear)\n",
              unit_.c_str());
  for (const std::string& name : order) {
    std::vector<const Result*> rows = byCase[name];
    std::sort(rows.begin(), rows.end(),
              [](const Result* a, const Result* b) { return a->n < b->n; });
    std::printf("  %s\n", name.c_str());
    if (rows.front()->operations > 0) {
      // Operations (look-ups): the time of one, and how it grows.
      for (const Result* row : rows) {
        std::printf("    %7s  library %10s/operation   raw %10s/operation   ratio %5.2f\n",
                    sizeText(row->n).c_str(), formatMs(row->library).c_str(),
                    formatMs(row->raw).c_str(), row->ratio);
      }
      if (rows.size() >= 2) {
        const Result* before = rows[rows.size() - 2];
        const Result* last = rows.back();
        std::printf("    time per operation %s -> %s: library x%.2f, raw x%.2f\n",
                    sizeText(before->n).c_str(), sizeText(last->n).c_str(),
                    before->library > 0 ? last->library / before->library : 0,
                    before->raw > 0 ? last->raw / before->raw : 0);
      }
      continue;
    }
    for (const Result* row : rows) {
      if (row->rawName.empty()) {
        std::printf("    %7s  library %10.2f us/item\n", sizeText(row->n).c_str(),
                    row->library * 1000 / static_cast<double>(row->n));
      } else {
        std::printf("    %7s  library %10.2f us/item   raw %10.2f us/item   ratio %5.2f\n",
                    sizeText(row->n).c_str(), row->library * 1000 / static_cast<double>(row->n),
                    row->raw * 1000 / static_cast<double>(row->n), row->ratio);
      }
    }
    if (rows.size() < 2) continue;
    const Result* before = rows[rows.size() - 2];
    const Result* last = rows.back();
    const double items = static_cast<double>(last->n) / static_cast<double>(before->n);
    const auto slope = [&](double a, double b) { return a > 0 ? (b / a) / items : 0; };
    const auto exponent = [&](double a, double b) {
      return a > 0 && b > 0 ? std::log(b / a) / std::log(items) : 0;
    };
    std::printf("    slope %s -> %s: library %.2f (time grows as n^%.2f)",
                sizeText(before->n).c_str(), sizeText(last->n).c_str(),
                slope(before->library, last->library), exponent(before->library, last->library));
    if (!last->rawName.empty()) {
      std::printf(", raw %.2f (n^%.2f)", slope(before->raw, last->raw),
                  exponent(before->raw, last->raw));
    }
    std::printf("\n");
  }
}

int Runner::finish() {
  printResults();
  if (sweep_) printSweep();
  std::fflush(stdout);
  return failed_ ? 1 : 0;
}

}  // namespace qzbench
