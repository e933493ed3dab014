// Benchmarks of the gralloc helper through its public interface.
//
// A layout-cache hit is set against floors measured in the same run: the work no hit can avoid
// (a mutex, a binary search with its found test, the planes copied into a record that already
// has capacity), written here over a copy of the helper's own cache. Heap allocations per hit,
// a hit whose caller's planes straddle a page, hits from several threads, hits while another
// thread probes, a probe and a buffer query are measured beside them. After the table the
// program prints the ratios, per repetition and as median, min and max, against their goals.
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <compare>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "GrallocAllocatorAidlV2.h"
#include "GrallocHelper.h"
#include "GrallocMapperAidlV2.h"

using aidl::android::hardware::graphics::common::BufferUsage;
using aidl::android::hardware::graphics::common::PixelFormat;

// Heap allocations are counted, and one allocation can be steered to an address of the
// benchmark's choosing (the caller's plane storage at a page boundary).
namespace {
std::atomic<uint64_t> gAllocations{0};
std::atomic<void*> gPlaceNext{nullptr};  // the next allocation goes here

// Two pages that placed allocations come from; mapped before main, never unmapped.
const size_t gPageSize = static_cast<size_t>(sysconf(_SC_PAGESIZE));
char* mapArena() {
    void* arena = mmap(nullptr, 2 * gPageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS,
                       -1, 0);
    if (arena == MAP_FAILED) abort();
    return static_cast<char*>(arena);
}
char* const gArena = mapArena();

bool inArena(const void* p) {
    // Zero until the arena is mapped; allocations made before then are never in it.
    const uintptr_t begin = reinterpret_cast<uintptr_t>(gArena);
    const uintptr_t address = reinterpret_cast<uintptr_t>(p);
    return begin != 0 && address >= begin && address - begin < 2 * gPageSize;
}
}  // namespace

void* operator new(size_t size) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    if (gPlaceNext.load(std::memory_order_relaxed) != nullptr) {
        if (void* p = gPlaceNext.exchange(nullptr)) return p;
    }
    if (void* p = malloc(size ? size : 1)) return p;
    abort();
}
void operator delete(void* p) noexcept {
    if (!inArena(p)) free(p);
}
void operator delete(void* p, size_t) noexcept {
    if (!inArena(p)) free(p);
}

namespace {

constexpr int32_t kUsageCpuReadOften = static_cast<int32_t>(BufferUsage::CPU_READ_OFTEN);
constexpr int32_t kYCrCb420SP = static_cast<int32_t>(PixelFormat::YCRCB_420_SP);
constexpr int kCacheSizes[] = {1, 16, 1000, 10000};

// Distinct small layouts of two planes each (i < 10000), in no particular key order.
zcam::GrallocRequest nthRequest(int i) {
    const int k = (i * 7919) % 10000;  // 7919 is prime to 10000: a permutation
    zcam::GrallocRequest request;
    request.usage = kUsageCpuReadOften;
    request.format = kYCrCb420SP;
    request.widthInPixels = 64 + 16 * (k % 100);
    request.heightInPixels = 48 + 2 * (k / 100);
    return request;
}

std::vector<zcam::GrallocRequest> requestsFor(int entries) {
    std::vector<zcam::GrallocRequest> requests;
    for (int i = 0; i < entries; ++i) requests.push_back(nthRequest(i));
    return requests;
}

// One helper per cache size, filled once with `entries` layouts.
zcam::IGrallocHelper& helperWith(int entries) {
    static std::map<int, std::unique_ptr<zcam::IGrallocHelper>> helpers;
    auto& helper = helpers[entries];
    if (!helper) {
        helper = zcam::createGrallocHelper();
        zcam::GrallocStaticInfo info;
        for (const auto& request : requestsFor(entries)) {
            if (helper->query(&request, &info, false) != 0) abort();
        }
    }
    return *helper;
}

// The floor's cache: a sorted copy of the helper's entries, in the helper's key order.
struct FloorKey {
    int32_t format, usage, width, height;
    bool isAFBC;
    int32_t batchNum;
    auto operator<=>(const FloorKey&) const = default;
};

FloorKey floorKey(const zcam::GrallocRequest& r, bool isAFBC) {
    return {r.format, r.usage, r.widthInPixels, r.heightInPixels, isAFBC, r.batchNum};
}

struct FloorCache {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    // The helper's own entry type, so that a probe of the array touches as many bytes.
    std::vector<zcam::GrallocCachedLayout> entries;
    std::vector<FloorKey> targets;  // normalised, as a hit looks them up
};

FloorCache& floorWith(int entries) {
    static std::map<int, std::unique_ptr<FloorCache>> floors;
    auto& floor = floors[entries];
    if (!floor) {
        floor = std::make_unique<FloorCache>();
        floor->entries = zcam::layoutCacheOf(helperWith(entries))->cachedLayouts();
        for (const auto& request : requestsFor(entries)) {
            floor->targets.push_back(floorKey(zcam::normalizeGrallocRequest(request), false));
        }
    }
    return *floor;
}

const zcam::GrallocCachedLayout* lowerBound(const FloorCache& floor, const FloorKey& key) {
    return std::lower_bound(floor.entries.data(), floor.entries.data() + floor.entries.size(), key,
                            [](const zcam::GrallocCachedLayout& e, const FloorKey& k) {
                                return floorKey(e.key, e.keyIsAFBC) < k;
                            });
}

// Copies a layout into a record that has capacity for its planes, as a hit must.
void copyLayout(const zcam::GrallocStaticInfo& from, zcam::GrallocStaticInfo& to) {
    to.format = from.format;
    to.widthInPixels = from.widthInPixels;
    to.heightInPixels = from.heightInPixels;
    to.isAFBC = from.isAFBC;
    if (to.planes.size() != from.planes.size()) to.planes.resize(from.planes.size());
    for (size_t i = 0; i < from.planes.size(); ++i) {
        to.planes[i].sizeInBytes = from.planes[i].sizeInBytes;
        to.planes[i].rowStrideInBytes = from.planes[i].rowStrideInBytes;
    }
}

// The floor: lock, binary search, found test, copy, unlock. Callers reach it through a pointer,
// as they reach a hit through the helper interface's virtual slot.
[[gnu::noinline]] bool floorLookup(FloorCache& floor, const FloorKey& key,
                                   zcam::GrallocStaticInfo& out) {
    pthread_mutex_lock(&floor.mutex);
    const zcam::GrallocCachedLayout* found = lowerBound(floor, key);
    const bool hit = found != floor.entries.data() + floor.entries.size() &&
                     !(key < floorKey(found->key, found->keyIsAFBC));
    if (hit) copyLayout(found->info, out);
    pthread_mutex_unlock(&floor.mutex);
    return hit;
}

// The operations measured. Each call looks up the next key; all keys in turn.
struct Hit {
    zcam::IGrallocHelper& helper;
    std::vector<zcam::GrallocRequest> requests;
    zcam::GrallocStaticInfo& info;
    size_t next = 0;

    void operator()() {
        benchmark::DoNotOptimize(helper.query(&requests[next], &info, false));
        if (++next == requests.size()) next = 0;
    }
};

Hit hitOf(int entries, zcam::GrallocStaticInfo& info) {
    Hit hit{helperWith(entries), requestsFor(entries), info};
    hit();  // the record now has capacity for the planes
    return hit;
}

struct Floor {
    FloorCache& floor;
    zcam::GrallocStaticInfo& info;
    bool (*lookup)(FloorCache&, const FloorKey&, zcam::GrallocStaticInfo&) = floorLookup;
    size_t next = 0;

    void operator()() {
        benchmark::DoNotOptimize(lookup(floor, floor.targets[next], info));
        if (++next == floor.targets.size()) next = 0;
    }
};

Floor floorOf(int entries, zcam::GrallocStaticInfo& info) {
    Floor floor{floorWith(entries), info};
    info.planes.resize(floor.floor.entries[0].info.planes.size());
    benchmark::DoNotOptimize(floor.lookup);
    return floor;
}

// The first floor, kept as a reference: inline in the loop, and it trusts the search to find
// the key, skipping the found test.
struct FloorWithoutFoundTest {
    FloorCache& floor;
    zcam::GrallocStaticInfo& info;
    size_t next = 0;

    void operator()() {
        pthread_mutex_lock(&floor.mutex);
        copyLayout(lowerBound(floor, floor.targets[next])->info, info);
        pthread_mutex_unlock(&floor.mutex);
        benchmark::DoNotOptimize(info);
        if (++next == floor.targets.size()) next = 0;
    }
};

FloorWithoutFoundTest floorWithoutFoundTestOf(int entries, zcam::GrallocStaticInfo& info) {
    FloorWithoutFoundTest floor{floorWith(entries), info};
    info.planes.resize(floor.floor.entries[0].info.planes.size());
    return floor;
}

// A record whose plane storage starts `offset` bytes before the end of the arena's first page.
// Both such records fit in the arena side by side.
zcam::GrallocStaticInfo& recordWithPlanesAt(size_t offset) {
    static std::map<size_t, zcam::GrallocStaticInfo> records;
    if (records.count(offset) == 0) {
        zcam::GrallocStaticInfo& info = records[offset];
        hitOf(16, info);  // the plane count of the layouts
        const size_t planes = info.planes.size();
        info.planes = std::vector<zcam::GrallocStaticInfo::Plane>();  // frees the storage
        gPlaceNext = gArena + gPageSize - offset;
        info.planes.reserve(planes);
        if (info.planes.data() != static_cast<void*>(gArena + gPageSize - offset)) abort();
    }
    return records[offset];
}

zcam::GrallocStaticInfo& alignedRecord() {
    return recordWithPlanesAt(gPageSize);
}

zcam::GrallocStaticInfo& straddlingRecord() {
    return recordWithPlanesAt(16);
}

// Runs `op` once per iteration; `counted` adds the heap allocations per call.
template <typename Op>
void measure(benchmark::State& state, Op op, bool counted) {
    const uint64_t before = gAllocations.load();
    for (auto _ : state) op();
    if (counted) {
        state.counters["allocs_per_hit"] = benchmark::Counter(
                static_cast<double>(gAllocations.load() - before) / state.iterations());
    }
}

// Times `numerator` and `denominator` in alternating blocks, one pair per iteration, and reports
// the median of the pairs' ratios: load on a shared machine slows both sides of a pair alike, and
// the median drops the pairs a context switch fell into.
template <typename A, typename B>
void measureRatio(benchmark::State& state, A numerator, B denominator) {
    constexpr int kBlock = 2048;
    using Clock = std::chrono::steady_clock;
    std::vector<double> ratios, numeratorNs, denominatorNs;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        for (int i = 0; i < kBlock; ++i) numerator();
        const auto t1 = Clock::now();
        for (int i = 0; i < kBlock; ++i) denominator();
        const auto t2 = Clock::now();
        const double a = std::chrono::duration<double, std::nano>(t1 - t0).count() / kBlock;
        const double b = std::chrono::duration<double, std::nano>(t2 - t1).count() / kBlock;
        ratios.push_back(a / b);
        numeratorNs.push_back(a);
        denominatorNs.push_back(b);
    }
    const auto median = [](std::vector<double>& v) {
        std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
        return v[v.size() / 2];
    };
    state.counters["ratio"] = median(ratios);
    state.counters["numerator_ns"] = median(numeratorNs);
    state.counters["denominator_ns"] = median(denominatorNs);
}

void BM_CacheHit(benchmark::State& state) {
    zcam::GrallocStaticInfo info;
    measure(state, hitOf(static_cast<int>(state.range(0)), info), true);
}

void BM_Floor(benchmark::State& state) {
    zcam::GrallocStaticInfo info;
    measure(state, floorOf(static_cast<int>(state.range(0)), info), false);
}

void BM_FloorWithoutFoundTest(benchmark::State& state) {
    zcam::GrallocStaticInfo info;
    measure(state, floorWithoutFoundTestOf(static_cast<int>(state.range(0)), info), false);
}

void BM_CacheHitPlanesAligned(benchmark::State& state) {
    measure(state, hitOf(16, alignedRecord()), true);
}

void BM_CacheHitPlanesStraddle(benchmark::State& state) {
    measure(state, hitOf(16, straddlingRecord()), true);
}

void BM_HitOverFloor(benchmark::State& state) {
    const int entries = static_cast<int>(state.range(0));
    zcam::GrallocStaticInfo hitInfo, floorInfo;
    measureRatio(state, hitOf(entries, hitInfo), floorOf(entries, floorInfo));
}

void BM_HitOverFloorWithoutFoundTest(benchmark::State& state) {
    const int entries = static_cast<int>(state.range(0));
    zcam::GrallocStaticInfo hitInfo, floorInfo;
    measureRatio(state, hitOf(entries, hitInfo), floorWithoutFoundTestOf(entries, floorInfo));
}

void BM_StraddleOverAligned(benchmark::State& state) {
    measureRatio(state, hitOf(16, straddlingRecord()), hitOf(16, alignedRecord()));
}

// Hits from several threads on one helper; hits per second over all threads.
void BM_CacheHitThreads(benchmark::State& state) {
    static zcam::IGrallocHelper& helper = helperWith(16);
    const std::vector<zcam::GrallocRequest> requests = requestsFor(16);
    zcam::GrallocStaticInfo info;
    size_t next = static_cast<size_t>(state.thread_index());
    for (auto _ : state) {
        benchmark::DoNotOptimize(helper.query(&requests[next % requests.size()], &info, false));
        ++next;
    }
    state.SetItemsProcessed(state.iterations());
}

// The probe measured: 1920x1080 YCrCb_420_SP.
zcam::GrallocRequest probeRequest() {
    zcam::GrallocRequest request;
    request.usage = kUsageCpuReadOften;
    request.format = kYCrCb420SP;
    request.widthInPixels = 1920;
    request.heightInPixels = 1080;
    return request;
}

// Hit latency while another thread probes the same helper without pause.
void BM_CacheHitWhileProbing(benchmark::State& state) {
    zcam::GrallocStaticInfo info;
    Hit hit = hitOf(16, info);
    std::vector<int64_t> latencies;
    latencies.reserve(static_cast<size_t>(state.max_iterations));

    std::atomic<bool> stop{false};
    std::atomic<uint64_t> probes{0};
    std::thread prober([&] {
        const zcam::GrallocRequest request = probeRequest();
        zcam::GrallocStaticInfo probed;
        while (!stop.load(std::memory_order_relaxed)) {
            if (hit.helper.query(&request, &probed, true) != 0) abort();
            probes.fetch_add(1, std::memory_order_relaxed);
        }
    });
    while (probes.load() == 0) std::this_thread::yield();

    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        hit();
        latencies.push_back((std::chrono::steady_clock::now() - start).count());
    }
    stop = true;
    prober.join();

    std::sort(latencies.begin(), latencies.end());
    const auto percentile = [&](double p) {
        return static_cast<double>(latencies[static_cast<size_t>(p * (latencies.size() - 1))]);
    };
    state.counters["p50_ns"] = percentile(0.50);
    state.counters["p99_ns"] = percentile(0.99);
    state.counters["p999_ns"] = percentile(0.999);  // the hits that waited for a probe
    state.counters["max_ns"] = percentile(1.0);
    state.counters["probes"] = static_cast<double>(probes.load());
}

// A cache miss: the refresh flag makes every query probe.
void BM_Probe(benchmark::State& state) {
    zcam::IGrallocHelper& helper = helperWith(1);
    const zcam::GrallocRequest request = probeRequest();
    zcam::GrallocStaticInfo info;
    for (auto _ : state) {
        benchmark::DoNotOptimize(helper.query(&request, &info, true));
    }
}

// The layout and descriptors of an existing buffer.
void BM_BufferQuery(benchmark::State& state) {
    using NSCam::GrallocAllocatorAidlV2::AllocatorAidl;
    zcam::IGrallocHelper& helper = helperWith(16);
    const std::shared_ptr<AllocatorAidl::IAllocator> service = AllocatorAidl::createInstance();
    const NSCam::GrallocMapperAidlV2::MapperV5 mapper(service);
    const AllocatorAidl allocator(service, mapper);
    const native_handle* buffer = nullptr;
    uint32_t stride = 0;
    if (allocator.allocate(640, 480, PixelFormat::YCRCB_420_SP, 1,
                           static_cast<uint64_t>(BufferUsage::CAMERA_OUTPUT), &buffer, &stride, 0,
                           "bench") != 0) {
        state.SkipWithError("allocation failed");
        return;
    }
    zcam::GrallocStaticInfo info;
    NSCam::GrallocDynamicInfo dynamicInfo;
    for (auto _ : state) {
        dynamicInfo.ionFds.clear();
        benchmark::DoNotOptimize(helper.query(buffer, &info, &dynamicInfo));
    }
    allocator.free(buffer);
}

void registerBenchmarks() {
    for (const int entries : kCacheSizes) {
        benchmark::RegisterBenchmark("BM_CacheHit", BM_CacheHit)->Arg(entries);
        benchmark::RegisterBenchmark("BM_Floor", BM_Floor)->Arg(entries);
        benchmark::RegisterBenchmark("BM_FloorWithoutFoundTest", BM_FloorWithoutFoundTest)
                ->Arg(entries);
    }
    for (const int entries : kCacheSizes) {
        benchmark::RegisterBenchmark("BM_HitOverFloor", BM_HitOverFloor)->Arg(entries);
    }
    for (const int entries : kCacheSizes) {
        benchmark::RegisterBenchmark("BM_HitOverFloorWithoutFoundTest",
                                     BM_HitOverFloorWithoutFoundTest)
                ->Arg(entries);
    }
    benchmark::RegisterBenchmark("BM_CacheHitPlanesAligned", BM_CacheHitPlanesAligned);
    benchmark::RegisterBenchmark("BM_CacheHitPlanesStraddle", BM_CacheHitPlanesStraddle);
    benchmark::RegisterBenchmark("BM_StraddleOverAligned", BM_StraddleOverAligned);
    benchmark::RegisterBenchmark("BM_CacheHitThreads", BM_CacheHitThreads)
            ->Threads(1)
            ->Threads(2)
            ->Threads(4)
            ->UseRealTime();
    benchmark::RegisterBenchmark("BM_CacheHitWhileProbing", BM_CacheHitWhileProbing)
            ->Iterations(200000)
            ->UseRealTime();
    benchmark::RegisterBenchmark("BM_Probe", BM_Probe)->UseRealTime();
    benchmark::RegisterBenchmark("BM_BufferQuery", BM_BufferQuery);
}

// A ratio line: the `ratio` counter of one paired benchmark, repetition by repetition.
struct Ratio {
    std::string label;
    std::string benchmark;
    double goalMedian;  // 0: a reference without a goal
    double goalEach;    // 0: no bound on single repetitions
};

std::vector<Ratio> ratios() {
    std::vector<Ratio> out;
    for (const int entries : kCacheSizes) {
        out.push_back({"hit/floor " + std::to_string(entries),
                       "BM_HitOverFloor/" + std::to_string(entries), 1.10, 1.25});
    }
    for (const int entries : kCacheSizes) {
        out.push_back({"hit/floor-without-found-test " + std::to_string(entries),
                       "BM_HitOverFloorWithoutFoundTest/" + std::to_string(entries), 0, 0});
    }
    out.push_back({"straddle/aligned", "BM_StraddleOverAligned", 1.10, 0});
    return out;
}

std::string formatRatio(const Ratio& ratio, std::vector<double> values) {
    char buffer[64];
    std::string line = ratio.label;
    line.resize(std::max<size_t>(line.size() + 1, 36), ' ');
    for (const double v : values) {
        snprintf(buffer, sizeof(buffer), " %.3f", v);
        line += buffer;
    }
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    const double median = n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
    snprintf(buffer, sizeof(buffer), " | median %.3f min %.3f max %.3f", median, values[0],
             values[n - 1]);
    line += buffer;
    if (ratio.goalMedian == 0) return line + " (reference)";
    const bool met =
            median <= ratio.goalMedian && (ratio.goalEach == 0 || values[n - 1] <= ratio.goalEach);
    snprintf(buffer, sizeof(buffer), " (goal median <= %.2f", ratio.goalMedian);
    line += buffer;
    if (ratio.goalEach != 0) {
        snprintf(buffer, sizeof(buffer), ", each <= %.2f", ratio.goalEach);
        line += buffer;
    }
    return line + (met ? "): met" : "): MISSED");
}

// Forwards to the reporter that --benchmark_format asks for and keeps each repetition's ratio
// counter. With aggregates only, the repetitions are kept but not forwarded.
class RatioReporter : public benchmark::BenchmarkReporter {
public:
    explicit RatioReporter(bool aggregatesOnly)
        : mInner(benchmark::CreateDefaultDisplayReporter()), mAggregatesOnly(aggregatesOnly) {}

    bool ReportContext(const Context& context) override { return mInner->ReportContext(context); }

    void ReportRuns(const std::vector<Run>& runs) override {
        std::vector<Run> forwarded;
        for (const auto& run : runs) {
            const auto ratio = run.counters.find("ratio");
            if (run.run_type == Run::RT_Iteration && !run.error_occurred &&
                ratio != run.counters.end()) {
                mRatios[run.benchmark_name()].push_back(ratio->second.value);
            }
            if (!mAggregatesOnly || run.run_type == Run::RT_Aggregate) forwarded.push_back(run);
        }
        if (!forwarded.empty()) mInner->ReportRuns(forwarded);
    }

    void Finalize() override {
        mInner->Finalize();
        // The table's stream stays machine-readable in the other formats.
        const bool console = dynamic_cast<benchmark::ConsoleReporter*>(mInner.get()) != nullptr;
        std::ostream& out = console ? mInner->GetOutputStream() : mInner->GetErrorStream();
        bool header = false;
        for (const Ratio& ratio : ratios()) {
            const auto values = mRatios.find(ratio.benchmark);
            if (values == mRatios.end()) continue;
            if (!header) {
                out << "ratios of time per call, in alternating blocks, repetition by "
                       "repetition:\n";
                header = true;
            }
            out << formatRatio(ratio, values->second) << "\n";
        }
    }

private:
    std::unique_ptr<benchmark::BenchmarkReporter> mInner;
    bool mAggregatesOnly;
    std::map<std::string, std::vector<double>> mRatios;
};

// Takes --benchmark_report_aggregates_only and --benchmark_display_aggregates_only out of argv:
// the library would then never hand the repetitions to a reporter.
bool takeAggregatesOnlyFlags(int& argc, char** argv) {
    bool aggregatesOnly = false;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        bool matched = false;
        for (const char* flag :
             {"--benchmark_report_aggregates_only", "--benchmark_display_aggregates_only"}) {
            if (arg.rfind(flag, 0) != 0) continue;
            const std::string value = arg.substr(strlen(flag));
            if (value.empty() || value == "=true" || value == "=1") {
                aggregatesOnly = true;
                matched = true;
            } else if (value == "=false" || value == "=0") {
                matched = true;
            }
        }
        if (!matched) argv[kept++] = argv[i];
    }
    argc = kept;
    return aggregatesOnly;
}

}  // namespace

int main(int argc, char** argv) {
    const bool aggregatesOnly = takeAggregatesOnlyFlags(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    registerBenchmarks();
    RatioReporter reporter(aggregatesOnly);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
