// The shared library's dynamic symbol table holds its public surface and nothing else.
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <utils/Errors.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "GrallocHelper.h"
#include "kit/GrallocKit.h"

namespace {

using aidl::android::hardware::graphics::common::BufferUsage;
using aidl::android::hardware::graphics::common::PixelFormat;

// Demangled names of the defined dynamic symbols of `library`.
std::vector<std::string> exportedSymbols(const std::string& library) {
    const std::string command = "nm -D --defined-only -C '" + library + "'";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::vector<std::string> names;
    if (pipe == nullptr) return names;
    // Lines read "<address> <type> <name>"; the name may contain blanks.
    static const std::regex kLine("^[0-9a-f]+ [A-Za-z] (.+)$");
    char line[4096];
    while (fgets(line, sizeof(line), pipe.get()) != nullptr) {
        std::string text(line);
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
        std::smatch match;
        if (std::regex_match(text, match, kLine)) names.push_back(match[1]);
    }
    return names;
}

const std::vector<std::regex>& publicSurface() {
    static const std::vector<std::regex> kPatterns = {
            std::regex(R"(GrallocAidlV2::GrallocHelperAidlV2Imp::.*)"),
            std::regex(R"(non-virtual thunk to GrallocAidlV2::GrallocHelperAidlV2Imp::.*)"),
            std::regex(R"((vtable|typeinfo|typeinfo name) for )"
                       R"((GrallocAidlV2::GrallocHelperAidlV2Imp|zcam::IGrallocHelper|)"
                       R"(zcam::IGrallocLayoutCache))"),
            std::regex(R"(GrallocAidlV2::(gMapperV5|gAllocatorAidl|gLogLevel))"),
            std::regex(R"(NSCam::GrallocMapperAidlV2::MapperV5::.*)"),
            std::regex(R"(NSCam::GrallocAllocatorAidlV2::AllocatorAidl::.*)"),
            std::regex(R"(android::(makeFromAidl|dupFromAidl|makeToAidl|dupToAidl|)"
                       R"(isAidlNativeHandleEmpty)\(.*)"),
            std::regex(R"(zcam::(createGrallocHelper|layoutCacheOf|normalizeGrallocRequest|)"
                       R"(pixelFormatName|grallocUsageName|dataspaceName|pixelFormatTable|)"
                       R"(findPixelFormat|planesLocatedByDerivation|usageWordTable|)"
                       R"(dataspaceWordTable|dataspaceFieldWordTable)(\[abi:cxx11\])?\(.*)"),
    };
    return kPatterns;
}

bool isPublic(const std::string& name) {
    for (const auto& pattern : publicSurface()) {
        if (std::regex_match(name, pattern)) return true;
    }
    return false;
}

TEST(ExportsTest, SharedLibraryExportsOnlyThePublicSurface) {
    const auto names = exportedSymbols(ZYNCAM_HELPER_LIBRARY);
    ASSERT_FALSE(names.empty()) << "nm listed nothing for " << ZYNCAM_HELPER_LIBRARY;
    std::vector<std::string> foreign;
    for (const auto& name : names) {
        if (!isPublic(name)) foreign.push_back(name);
    }
    EXPECT_THAT(foreign, ::testing::IsEmpty());

    // And the surface is all there: what the camera stack and the tool call by name.
    const char* const kRequired[] = {
            "GrallocAidlV2::gMapperV5",
            "GrallocAidlV2::gAllocatorAidl",
            "GrallocAidlV2::gLogLevel",
            "GrallocAidlV2::GrallocHelperAidlV2Imp::GrallocHelperAidlV2Imp()",
            "GrallocAidlV2::GrallocHelperAidlV2Imp::initialize()",
            "vtable for GrallocAidlV2::GrallocHelperAidlV2Imp",
            "typeinfo for zcam::IGrallocHelper",
            "zcam::createGrallocHelper()",
            "zcam::layoutCacheOf(zcam::IGrallocHelper const&)",
            "zcam::normalizeGrallocRequest(zcam::GrallocRequest const&)",
            "NSCam::GrallocAllocatorAidlV2::AllocatorAidl::createInstance()",
    };
    for (const char* name : kRequired) {
        EXPECT_THAT(names, ::testing::Contains(std::string(name)));
    }
}

// A program that knows only the public headers creates a helper and looks into its cache.
TEST(ExportsTest, PublicHeadersSufficeForALayoutQuery) {
    testkit::SimFaults faults;
    auto helper = zcam::createGrallocHelper();
    ASSERT_NE(helper, nullptr);
    const zcam::IGrallocLayoutCache* cache = zcam::layoutCacheOf(*helper);
    ASSERT_NE(cache, nullptr);
    const zcam::GrallocRequest request{static_cast<int32_t>(BufferUsage::CPU_READ_OFTEN),
                                       static_cast<int32_t>(PixelFormat::RAW16), 640, 480, 0};
    zcam::GrallocStaticInfo info;
    ASSERT_EQ(helper->query(&request, &info, false), android::NO_ERROR);
    EXPECT_EQ(info.format, static_cast<int32_t>(PixelFormat::RAW16));
    EXPECT_EQ(cache->cachedLayoutCount(), 1u);
    zcam::GrallocCachedLayout cached;
    ASSERT_TRUE(cache->findCachedLayout(request, false, &cached));
    EXPECT_EQ(cached.key.usage, zcam::normalizeGrallocRequest(request).usage);
}

}  // namespace
