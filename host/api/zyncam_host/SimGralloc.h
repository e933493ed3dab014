// Controls of the simulated vendor gralloc: counters, fault injection and direct access to
// buffers. Faults are off until a test turns them on; resetFaults() turns them all off.
#pragma once

#include <aidl/android/hardware/graphics/common/PlaneLayout.h>
#include <android/rect.h>
#include <cutils/native_handle.h>
#include <zyncam_host/ProfileFormat.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zyncam::sim {

inline constexpr const char* kMapperSuffix = "zyncamsim";
inline constexpr const char* kAllocatorInstance =
        "android.hardware.graphics.allocator.IAllocator/default";

struct Counters {
    uint64_t allocateCalls = 0;  // allocate2 calls that reached the service
    uint64_t buffersAllocated = 0;
    uint64_t imports = 0;        // successful imports
    uint64_t frees = 0;          // successful frees
    int64_t liveBuffers = 0;     // imported and not yet freed
    uint64_t locks = 0;          // successful locks
    uint64_t unlocks = 0;        // successful unlocks
    uint64_t metadataGets = 0;   // getStandardMetadata calls
    uint64_t metadataSets = 0;   // setStandardMetadata calls
    uint64_t extraQueries = 0;   // gralloc_extra_query calls
    uint64_t extraPerforms = 0;  // gralloc_extra_perform calls
};
Counters counters();

void resetFaults();

// allocate2 answers with this service-specific error (AllocationError), or with a transport
// failure when `serviceSpecific` is negative.
void failAllocate(std::optional<int32_t> serviceSpecific);
// The k-th import from now (1 = the next) fails with BAD_BUFFER; 0 turns it off.
void failImportAt(int k);
// lock / unlock answer with this AIMapper_Error (0 turns it off).
void failLock(int32_t error);
void failUnlock(int32_t error);
// unlock hands back a release fence that signals this many milliseconds later (0: no fence).
void setLateFenceMs(int ms);
// getStandardMetadata of `type` answers `answer` (a negated AIMapper_Error) without encoding.
void setMetadataAnswer(int64_t type, std::optional<int32_t> answer);
// PLANE_LAYOUTS answers these layouts instead of the buffer's own.
void overridePlaneLayouts(
        std::optional<std::vector<aidl::android::hardware::graphics::common::PlaneLayout>> layouts);
// Whether lock closes the acquire fence it is given, as a mapper must (on by default).
void setLockClosesAcquireFence(bool closes);
// getStandardMetadata of `type` answers these encoded bytes instead of the buffer's own: the
// result is their length, and they are copied only when they fit the caller's buffer.
void setMetadataBytes(int64_t type, std::optional<std::vector<uint8_t>> bytes);
// setStandardMetadata of `type` on a valid buffer answers this AIMapper_Error and stores nothing.
void failSetMetadata(int64_t type, std::optional<int32_t> error);
// freeBuffer of a valid buffer answers this AIMapper_Error and keeps the buffer (0 turns it off).
void failFree(int32_t error);
// lock cannot map the buffer's memory, as when the address space is exhausted (NO_RESOURCES).
// An import is mapped on its first lock and stays mapped, so only first locks are affected.
void failLockMapping(bool fail);
// allocate2 hands back this many buffers fewer than it was asked for (never fewer than none).
void setAllocateShortfall(int32_t missing);
// gralloc_extra_query of `attribute` fails with `code`, or reports `value` instead of the truth.
void failExtraQuery(int attribute, std::optional<int32_t> code);
void overrideExtraQuery(int attribute, std::optional<int64_t> value);
// gralloc_extra_perform of `attribute` fails with `code` and stores nothing.
void failExtraPerform(int attribute, std::optional<int32_t> code);
// gralloc_extra_sf_set_status fails with `code` and leaves the record as it was.
void failSfSetStatus(std::optional<int32_t> code);
// gralloc_extra_get_platform_format answers `format` for every request.
void overridePlatformFormat(std::optional<int32_t> format);
// What getIMapperLibrarySuffix answers (the real mapper by default), or that the call fails.
void setMapperSuffix(const std::string& suffix);
std::string mapperSuffix();
void failMapperSuffix(bool fail);
// The dma-buf naming ioctl fails with this errno (0 turns it off); nothing is recorded then.
void failDmaBufName(int error);

// Names given to dma-bufs of simulated buffers, oldest first: the last kDmaBufNameHistoryLimit
// only, so that long runs keep a constant footprint.
inline constexpr size_t kDmaBufNameHistoryLimit = 64;
std::vector<std::string> dmaBufNameHistory();
void clearDmaBufNameHistory();

// Device profiles (host/profiles/README.md): how the allocator lays buffers out. The simulator
// starts with the file that $ZYNCAM_GRALLOC_PROFILE names, else the built-in default; a file that
// does not load then ends the process, its error on stderr. Switching profiles changes what later
// requests get; a buffer keeps the layout it was allocated with. Thread-safe.
inline constexpr const char* kProfileVariable = "ZYNCAM_GRALLOC_PROFILE";
struct Profile;
// Loads a profile file, or profile text (`source` names it in errors), and puts it in force.
// False with "file: field: reason" in `error` (may be null) when it is refused; the profile in
// force then stays.
bool loadProfile(const std::string& path, std::string* error);
bool loadProfileText(const std::string& text, const std::string& source, std::string* error);
// Back to the start-up profile.
void resetProfile();
// The profile in force, and putting one back in force (null: the start-up profile).
std::shared_ptr<const Profile> activeProfile();
void activateProfile(std::shared_ptr<const Profile> profile);
// The built-in default profile's JSON (host/profiles/default.json), for example as the rules
// of a captured profile whose exact answers are added to it.
std::string builtInProfileJson();
// The "name" of the profile in force, and the file it came from.
std::string profileName();
std::string profileSource();
// Whether the profile in force is the built-in default, and how many exact answers it holds.
bool profileIsBuiltIn();
size_t profileExactAnswerCount();
// Whether the buffer was laid out by an exact answer of the profile rather than by its rules.
bool answeredFromExactTable(const native_handle_t* buffer);
// The exact answer the profile in force holds for an allocation, or null when its rules answer.
std::shared_ptr<const profile::ExactAnswer> exactAnswerFor(
        const profile::AllocationRequest& request);
// The call journal: off until a test turns it on. Entries are appended as calls return, so a
// call's own inner calls (the mapper waiting on and closing an acquire fence) come before it.
enum class Call {
    // mapper
    Import,
    Free,
    Lock,
    Unlock,
    GetStandardMetadata,
    SetStandardMetadata,
    // gralloc extension
    ExtraQuery,
    ExtraPerform,
    ExtraSfSetStatus,
    ExtraPlatformFormat,
    // fences, observed process-wide while the journal is on
    SyncWait,
    Close,
};
struct JournalEntry {
    Call call;
    const native_handle_t* handle = nullptr;  // the buffer of a mapper or extension call
    uint64_t usage = 0;                       // Lock: CPU usage; ExtraPlatformFormat: usage
    ARect region{};                           // Lock
    // Lock: the acquire fence; Unlock: the release fence; SyncWait, Close: the descriptor.
    int fd = -1;
    // Extension calls: the attribute (ExtraPlatformFormat: the format); metadata calls: the
    // standard metadata type; SyncWait: the time-out.
    int64_t attribute = 0;
    // AIMapper_Error, the extension's result, getStandardMetadata's size or negated error, or
    // what sync_wait and close returned.
    int32_t result = 0;
    size_t bytesWritten = 0;  // into the caller's memory (or, for a perform, into the buffer)
};
// Turning the journal on or off empties it.
void setJournalEnabled(bool on);
std::vector<JournalEntry> journal();

// Registers the allocator service again (for example after a test removed it).
void registerAllocatorService();

// A raw handle of a new buffer, as the allocator would send it; the caller closes and deletes
// it. Null when the profile does not support the request.
native_handle_t* createRawBuffer(int32_t width, int32_t height, int32_t format, uint64_t usage,
                                 int32_t* outStride = nullptr);

}  // namespace zyncam::sim
