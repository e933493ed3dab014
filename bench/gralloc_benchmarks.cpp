// Benchmarks of the layout cache: a hit next to a floor of the work a hit cannot avoid (a mutex,
// a binary search over as many entries, the planes copied into a record that has capacity),
// with heap allocations counted per hit. A probe, a buffer query and a disabled log line are
// measured beside them.
#define LOG_TAG "ZynCam/GrallocHelperAidlV2"
#define LOG_FILE "bench/gralloc_benchmarks"

#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <new>

#include "GrallocAllocatorAidlV2.h"
#include "GrallocHelperAidlV2Imp.h"
#include "logging/GrallocLog.h"

namespace {
std::atomic<uint64_t> gAllocations{0};
}

void* operator new(size_t size) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = malloc(size ? size : 1)) return p;
    abort();
}
void operator delete(void* p) noexcept {
    free(p);
}
void operator delete(void* p, size_t) noexcept {
    free(p);
}

namespace {

using GrallocAidlV2::GrallocHelperAidlV2Imp;
using GrallocAidlV2::MyStaticInfo;
using MyRequest = GrallocHelperAidlV2Imp::MyRequest;

zcam::GrallocRequest nthRequest(int i) {
    return {0x3, 0x11, 64 + 32 * i, 48, 0};
}

// One helper per cache size, filled once with `entries` distinct layouts.
GrallocHelperAidlV2Imp& helperWith(int entries) {
    static std::map<int, std::unique_ptr<GrallocHelperAidlV2Imp>> helpers;
    auto& helper = helpers[entries];
    if (!helper) {
        helper = std::make_unique<GrallocHelperAidlV2Imp>();
        zcam::GrallocStaticInfo info;
        for (int i = 0; i < entries; ++i) {
            zcam::GrallocRequest r = nthRequest(i);
            if (helper->query(&r, &info, false) != 0) abort();
        }
    }
    return *helper;
}

// Both the hit and the floor look up every cached key in turn.
void BM_CacheHit(benchmark::State& state) {
    const int entries = static_cast<int>(state.range(0));
    GrallocHelperAidlV2Imp& helper = helperWith(entries);
    std::vector<zcam::GrallocRequest> requests;
    for (int i = 0; i < entries; ++i) requests.push_back(nthRequest(i));
    zcam::GrallocStaticInfo info;
    helper.query(&requests[0], &info, false);  // the record now has capacity for the planes
    size_t next = 0;
    const uint64_t before = gAllocations.load();
    for (auto _ : state) {
        benchmark::DoNotOptimize(helper.query(&requests[next], &info, false));
        if (++next == requests.size()) next = 0;
    }
    state.counters["allocs_per_hit"] = benchmark::Counter(
            static_cast<double>(gAllocations.load() - before) / state.iterations());
}
BENCHMARK(BM_CacheHit)->Arg(1)->Arg(16)->Arg(1000);

void BM_Floor(benchmark::State& state) {
    const int entries = static_cast<int>(state.range(0));
    std::vector<std::pair<MyRequest, MyStaticInfo>> map;
    for (int i = 0; i < entries; ++i) {
        MyRequest key;
        GrallocHelperAidlV2Imp::determine(nthRequest(i), key);
        MyStaticInfo value;
        value.planes = {{3072, 64}, {1536, 64}};
        map.emplace_back(key, value);
    }
    std::vector<MyRequest> targets;
    for (const auto& entry : map) targets.push_back(entry.first);
    std::sort(map.begin(), map.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    size_t next = 0;
    pthread_mutex_t mutex;
    pthread_mutex_init(&mutex, nullptr);
    zcam::GrallocStaticInfo info;
    info.planes.reserve(4);
    for (auto _ : state) {
        pthread_mutex_lock(&mutex);
        auto it = std::lower_bound(map.begin(), map.end(), targets[next],
                                   [](const auto& e, const MyRequest& k) { return e.first < k; });
        it->second.copyTo(info);
        pthread_mutex_unlock(&mutex);
        benchmark::DoNotOptimize(info);
        if (++next == targets.size()) next = 0;
    }
    pthread_mutex_destroy(&mutex);
}
BENCHMARK(BM_Floor)->Arg(1)->Arg(16)->Arg(1000);

void BM_Probe(benchmark::State& state) {
    GrallocHelperAidlV2Imp& helper = helperWith(1);
    const zcam::GrallocRequest request = nthRequest(0);
    zcam::GrallocStaticInfo info;
    for (auto _ : state) {
        benchmark::DoNotOptimize(helper.query(&request, &info, true));
    }
}
BENCHMARK(BM_Probe);

void BM_BufferQuery(benchmark::State& state) {
    GrallocHelperAidlV2Imp& helper = helperWith(16);
    const native_handle* buffer = nullptr;
    uint32_t stride = 0;
    GrallocAidlV2::gAllocatorAidl->allocate(
            640, 480, aidl::android::hardware::graphics::common::PixelFormat::YCRCB_420_SP, 1, 0x3,
            &buffer, &stride, 0, "bench");
    zcam::GrallocStaticInfo info;
    for (auto _ : state) {
        benchmark::DoNotOptimize(helper.query(buffer, &info, nullptr));
    }
    GrallocAidlV2::gAllocatorAidl->free(buffer);
}
BENCHMARK(BM_BufferQuery);

void BM_DisabledLogLine(benchmark::State& state) {
    const std::string name = "YCrCb_420_SP";
    for (auto _ : state) {
        ZLOGD("[%s] %dx%d format:%s", 1920, 1080, name.c_str());
    }
}
BENCHMARK(BM_DisabledLogLine);

// Keeps each benchmark's time per iteration for the ratios printed at the end.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const auto& run : runs) {
            if (run.run_type == Run::RT_Iteration)
                times[run.benchmark_name()] = run.GetAdjustedRealTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
    using NSCam::Utils::ULog::ULogger;
    ULogger::sMode = 1;
    ULogger::sDetailsLevel = 2;  // warnings and errors only: the hit path's debug line is off
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (const char* n : {"1", "16", "1000"}) {
        const auto hit = reporter.times.find(std::string("BM_CacheHit/") + n);
        const auto floor = reporter.times.find(std::string("BM_Floor/") + n);
        if (hit == reporter.times.end() || floor == reporter.times.end()) continue;
        printf("hit/floor with %4s entries: %.2f (goal <= 1.30)\n", n, hit->second / floor->second);
    }
    benchmark::Shutdown();
    return 0;
}
