// The library's tables against each other and against the shipped device profiles: every format
// it names has one consistent row, every format it lays out has a rule in every profile, and
// every word round-trips through the namers.
#include <GrallocFormats.h>
#include <GrallocHelper.h>
#include <GrallocVocabulary.h>
#include <json/reader.h>
#include <strings.h>

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>

#include "GrallocHelperInternal.h"
#include "kit/Codes.h"

namespace {

using testkit::bits;
using testkit::BufferUsage;
using zcam::LayoutFamily;
using zcam::PixelFormatInfo;
using zcam::PlaneLock;
using zcam::SinglePlaneRule;

const std::string kProfiles = ZYNCAM_PROFILES_DIR;
const char* const kShipped[] = {"default", "soc-a64", "soc-b128"};
constexpr unsigned kBitsPerByte = 8;

std::string upper(std::string text) {
    for (char& c : text) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return text;
}

Json::Value readProfile(const std::string& name) {
    std::ifstream in(kProfiles + "/" + name + ".json");
    Json::Value root;
    EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &root, nullptr)) << name;
    return root;
}

TEST(TablesTest, EachFormatHasOneConsistentRow) {
    std::set<int32_t> values;
    std::set<std::string> names;
    for (const PixelFormatInfo& row : zcam::pixelFormatTable()) {
        SCOPED_TRACE(row.name);
        EXPECT_TRUE(values.insert(row.format).second) << "format listed twice";
        EXPECT_TRUE(names.insert(upper(row.name)).second) << "name listed twice";
        EXPECT_EQ(zcam::findPixelFormat(row.format), &row);
        EXPECT_EQ(zcam::pixelFormatName(row.format), row.name);

        const bool single = row.family == LayoutFamily::kSinglePlane;
        EXPECT_EQ(row.rule != SinglePlaneRule::kNotSinglePlane, single);
        EXPECT_TRUE(!single || row.bytesPerSample > 0);
        if (row.family == LayoutFamily::kTwoPlane420) {
            EXPECT_EQ(row.bitsPerSample, kBitsPerByte * row.bytesPerSample);
        }
        // A lock locates planes only where the derivation takes them from one.
        EXPECT_EQ(row.lock == PlaneLock::kLocates,
                  row.family == LayoutFamily::kLockedSemiPlanar420);
        EXPECT_EQ(row.lock == PlaneLock::kLocatesUnlessProtected,
                  row.family == LayoutFamily::kThreePlaneYV12);
    }
    EXPECT_EQ(zcam::findPixelFormat(zcam::kPixelFormatSmvrBatch2), nullptr);
}

// The simulator reads format names without regard to case; flexible formats are resolved to
// another format before any rule applies.
TEST(TablesTest, EveryShippedProfileHasARuleForEveryFormat) {
    for (const char* profile : kShipped) {
        SCOPED_TRACE(profile);
        const Json::Value root = readProfile(profile);
        std::set<std::string> rules, resolved;
        for (const std::string& name : root["formats"].getMemberNames()) rules.insert(upper(name));
        for (const Json::Value& entry : root["resolve"])
            resolved.insert(upper(entry["format"].asString()));
        for (const PixelFormatInfo& row : zcam::pixelFormatTable()) {
            const std::set<std::string>& where =
                    row.family == LayoutFamily::kFlexible ? resolved : rules;
            EXPECT_EQ(where.count(upper(row.name)), 1u) << row.name;
        }
    }
}

// Splits a usage name into its pieces and maps each back to its bits through the table.
uint32_t bitsOfName(const std::string& name) {
    uint32_t out = 0;
    size_t start = name.find('|');
    while (start != std::string::npos) {
        const size_t end = name.find('|', start + 1);
        const std::string piece = name.substr(start + 1, end - start - 1);
        bool found = false;
        for (const zcam::UsageWord& word : zcam::usageWordTable()) {
            if (piece == word.name) {
                out |= word.bits;
                found = true;
            }
        }
        EXPECT_TRUE(found) << piece;
        start = end;
    }
    return out;
}

TEST(TablesTest, EveryUsageWordRoundTripsThroughTheNamer) {
    const uint32_t opener = static_cast<uint32_t>(bits(BufferUsage::GPU_TEXTURE));
    for (const zcam::UsageWord& word : zcam::usageWordTable()) {
        SCOPED_TRACE(word.name);
        const std::string alone = zcam::grallocUsageName(static_cast<int>(word.bits));
        switch (word.kind) {
            case zcam::UsageWordKind::kFieldValue:
                EXPECT_EQ(alone, std::string("0|") + word.name);
                break;
            case zcam::UsageWordKind::kHardwareBit:
                if (word.opensHardwarePieces) {
                    EXPECT_EQ(alone, std::string("0|") + word.name);
                } else {
                    // Shown only beside a bit that opens the hardware pieces.
                    EXPECT_EQ(alone, "0");
                    EXPECT_EQ(zcam::grallocUsageName(static_cast<int>(word.bits | opener)),
                              std::string("0|HW_TEXTURE|") + word.name);
                }
                break;
            case zcam::UsageWordKind::kNotShown:
                EXPECT_EQ(alone, "0");
                continue;
        }
        const uint32_t shown = word.opensHardwarePieces ? word.bits : word.bits | opener;
        EXPECT_EQ(bitsOfName(zcam::grallocUsageName(static_cast<int>(shown))), shown);
    }
}

TEST(TablesTest, EveryDataspaceWordRoundTripsThroughItsNamers) {
    for (const zcam::DataspaceWord& word : zcam::dataspaceWordTable()) {
        SCOPED_TRACE(word.name);
        const std::string interface = zcam::dataspaceName(word.value);
        const std::string setter = zcam::queryDataspaceName(word.value);
        const auto names = [&](const std::string& name) {
            return word.composite ? name.rfind(std::string(word.name) + "|", 0) == 0
                                  : name == word.name;
        };
        EXPECT_EQ(names(interface), word.namer != zcam::DataspaceNamer::kSetterOnly);
        EXPECT_EQ(names(setter), word.namer != zcam::DataspaceNamer::kInterfaceOnly);
    }
    for (const zcam::DataspaceFieldWord& word : zcam::dataspaceFieldWordTable()) {
        SCOPED_TRACE(word.name);
        EXPECT_EQ(word.value & ~word.fieldMask, 0u);
        const std::string name = zcam::dataspaceName(static_cast<int>(word.value));
        EXPECT_EQ(name.substr(name.find('|') + 1), word.name);
    }
}

}  // namespace
