// Verifiers on many threads give what they give on one: many objects verifying corpus
// documents side by side, and several threads calling one object, whose lock serialises
// the calls. Built also under ThreadSanitizer (make test-tsan), which reports any data
// race the runs provoke.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "CorpusCases.h"
#include "TestSupport.h"

namespace {

constexpr int kThreads = 8;

struct Result {
  bool loaded = false;
  bool valid = false;
  int reason = -1;
  std::string log;  // the verification's whole log, as text
  bool operator==(const Result& o) const {
    return loaded == o.loaded && valid == o.valid && reason == o.reason && log == o.log;
  }
};

Result verifyOnce(const corpuscases::Case& c, const std::string& doc) {
  Result r;
  std::unique_ptr<ClsXmlDSig> dsig = corpuscases::prepare(c, doc);
  if (!dsig) return r;
  r.loaded = true;
  r.valid = dsig->VerifySignature(true);
  r.reason = dsig->get_RefFailReason();
  r.log = dsig->lastErrorText();
  return r;
}

// Every fourth case of the manifests (HMAC, public-key, certificate-store and KeyInfo
// keys, every family), with its document.
struct Sample {
  corpuscases::Case c;
  std::string doc;
};
std::vector<Sample> samples() {
  std::vector<Sample> out;
  const std::vector<corpuscases::Case> cases = corpuscases::allCases();
  for (size_t i = 0; i < cases.size(); i += 4) out.push_back({cases[i], corpuscases::documentOf(cases[i])});
  return out;
}

}  // namespace

TEST(Concurrency, ManyVerifiersOnManyThreadsMatchASerialRun) {
  REQUIRE_CORPUS();
  const std::vector<Sample> work = samples();
  std::vector<Result> serial;
  for (const Sample& s : work) serial.push_back(verifyOnce(s.c, s.doc));
  int passing = 0;
  for (const Result& r : serial) passing += r.valid;
  ASSERT_GT(passing, 10);

  // Each thread verifies every sample, starting at its own offset, with new objects.
  std::vector<std::vector<Result>> results(kThreads, std::vector<Result>(work.size()));
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      for (size_t k = 0; k < work.size(); ++k) {
        const size_t i = (k + static_cast<size_t>(t) * work.size() / kThreads) % work.size();
        results[t][i] = verifyOnce(work[i].c, work[i].doc);
      }
    });
  for (std::thread& th : threads) th.join();
  for (int t = 0; t < kThreads; ++t)
    for (size_t i = 0; i < work.size(); ++i)
      EXPECT_TRUE(results[t][i] == serial[i]) << work[i].c.id << " on thread " << t;
}

// Several threads verify the document loaded into one object, and read its references,
// at once. Each answer is the serial one. (RefFailReason and the log belong to whichever
// call ran last, so only the results are compared.)
TEST(Concurrency, ThreadsSharingOneVerifierMatchASerialRun) {
  REQUIRE_CORPUS();
  constexpr int kCalls = 4;
  int shared = 0;
  for (const Sample& s : samples()) {
    std::unique_ptr<ClsXmlDSig> dsig = corpuscases::prepare(s.c, s.doc);
    if (!dsig) continue;
    // The serial answers, repeated: a verification may leave the attribute-sorting
    // setting changed for the next one, so only documents that answer alike every
    // time can be compared with calls in any order.
    const bool first = dsig->VerifySignature(true);
    std::vector<bool> references, again;
    for (int i = 0; i < dsig->get_NumReferences(); ++i) references.push_back(dsig->VerifyReferenceDigest(i));
    for (int i = 0; i < dsig->get_NumReferences(); ++i) again.push_back(dsig->VerifyReferenceDigest(i));
    if (dsig->VerifySignature(true) != first || again != references) continue;
    ++shared;

    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
      threads.emplace_back([&, t] {
        for (int call = 0; call < kCalls; ++call) {
          if (t % 2 == 0) {
            if (dsig->VerifySignature(true) != first) ++mismatches;
          } else {
            const int i = (t + call) % static_cast<int>(std::max<size_t>(references.size(), 1));
            if (!references.empty() && dsig->VerifyReferenceDigest(i) != references[i]) ++mismatches;
            if (dsig->get_NumReferences() != static_cast<int>(references.size())) ++mismatches;
          }
        }
      });
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(mismatches.load(), 0) << s.c.id;
  }
  EXPECT_GT(shared, 20);
}
