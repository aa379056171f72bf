// Network and node utilities, over the virtual system's nodes.

#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <tuple>

#include <gmock/gmock.h>

#include <Nucleo/ArrayList.h>
#include <Nucleo/String.h>
#include <VxCommon/VcUtils/VcUtils.h>
#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/TestSystem.h>

using namespace Nucleo::Statuses;
using TesselLib::IpAddress;
using TesselLib::IpConfig;
using TesselLib::IpMode;
using TesselLib::IpVersion;
using TesselLib::NodeState;
using testing::ElementsAre;
using VxTestSupport::ScopedLogCapture;
using VxTestSupport::TestSystem;

namespace
{

IpAddress Address(const std::string& text)
{
    IpAddress address;
    EXPECT_EQ(TesselLib::IpAddress_Parse(&address, text), OK) << text;
    return address;
}

/// "192.168.1.10/24" or "192.168.1.10/24 192.168.1.1".
IpConfig Config(const std::string& text)
{
    const std::size_t slash = text.find('/');
    const std::size_t blank = std::min(text.find(' '), text.size());
    IpConfig config;
    config.address = Address(text.substr(0, slash));
    const int length = std::stoi(text.substr(slash + 1, blank - slash - 1));
    for (int bit = 0; bit < length; ++bit) {
        config.mask.bytes[static_cast<std::size_t>(bit / 8)] |= static_cast<std::uint8_t>(0x80 >> bit % 8);
    }
    if (blank != text.size()) {
        config.gateway = Address(text.substr(blank + 1));
    }
    return config;
}

using ConfigList = Nucleo::Handle<Nucleo::ArrayList<IpConfig>>;

ConfigList List(const std::vector<std::string>& texts)
{
    ConfigList list;
    EXPECT_EQ(Nucleo::ArrayList<IpConfig>::Make(list.Receive(), 0, nullptr), OK);
    for (const std::string& text : texts) {
        EXPECT_EQ(list->Append(Config(text)), OK);
    }
    return list;
}

TEST(VcUtilsTest, MasksAreOnesThenZerosAndSomeOfEach)
{
    const auto isValid = [](std::uint32_t mask) {
        const std::uint8_t bytes[] = {static_cast<std::uint8_t>(mask >> 24), static_cast<std::uint8_t>(mask >> 16),
                                      static_cast<std::uint8_t>(mask >> 8), static_cast<std::uint8_t>(mask)};
        const bool valid = VcUtils_ValidateSubnetMaskValue32u(mask);
        EXPECT_EQ(VcUtils_ValidateSubnetMask(bytes), valid);
        return valid;
    };
    for (const std::uint32_t mask : {0x80000000U, 0xC0000000U, 0xFF000000U, 0xFFFE0000U, 0xFFFFFF00U, 0xFFFFFFFEU}) {
        EXPECT_TRUE(isValid(mask)) << mask;
    }
    for (const std::uint32_t mask : {0U, 0xFFFFFFFFU, 1U, 0x7FFFFFFFU, 0x40000000U, 0xFF00FF00U, 0xFFFFFF01U,
                                     0xFEFFFFFFU, 0xFFFFFEFEU, 0xFFFEFF00U, 0x00FFFFFFU}) {
        EXPECT_FALSE(isValid(mask)) << mask;
    }
}

TEST(VcUtilsTest, AddressesGivenByHandAreJudged)
{
    for (const char* text : {"0.0.0.0", "126.255.255.255", "128.0.0.0", "254.1.1.1", "192.127.255.1"}) {
        const IpConfig config{Address(text), {}, {}};
        EXPECT_TRUE(VcUtils_ValidateIpConfig(&config)) << text;
    }
    for (const char* text : {"127.0.0.1", "127.255.0.0", "255.0.0.1", "255.255.255.255"}) {
        IpConfig config{Address(text), {}, {}};
        EXPECT_FALSE(VcUtils_ValidateIpConfig(&config)) << text;
        config.mode = IpMode::Dhcp;
        EXPECT_TRUE(VcUtils_ValidateIpConfig(&config)) << text;
    }
    IpConfig config{{{0xFE, 0x80}, IpVersion::V6}, {}, {}};
    EXPECT_FALSE(VcUtils_ValidateIpConfig(&config));
    config.mode = static_cast<IpMode>(-1);
    EXPECT_TRUE(VcUtils_ValidateIpConfig(&config));
}

TEST(VcUtilsTest, NetworksOfOneMachineAreUniqueAndReachTheirGateways)
{
    const std::tuple<std::vector<std::string>, bool, bool> cases[] = {
        {{}, true, true},
        {{"192.168.1.10/16", "192.168.2.10/24"}, false, true},  // under the first mask
        {{"192.168.2.10/24", "192.168.1.10/16"}, false, true},  // under the second mask
        {{"10.0.0.1/32", "10.0.0.1/32"}, false, true},
        {{"10.0.0.127/25", "10.0.0.128/25"}, true, true},
        {{"10.0.0.1/0", "99.0.0.1/24"}, false, true},
        {{"10.0.3.1/24", "10.0.0.1/24", "10.0.1.1/24", "10.0.0.9/24"}, false, true},
        {{"10.0.0.1/24 10.0.0.254"}, true, true},
        {{"10.0.0.1/24 10.0.1.254"}, true, false},
        {{"10.0.0.1/24 10.0.1.254", "10.0.1.1/24"}, true, true},
        {{"10.0.1.1/24", "10.0.0.1/24 10.0.1.254"}, true, true},
        {{"10.0.1.1/24 10.0.0.7", "10.0.0.1/24 10.0.2.1"}, true, false},
        {{"10.0.0.1/25 10.0.0.128"}, true, false},
        {{"10.0.0.1/24 0.0.0.1"}, true, false},
    };
    for (const auto& [texts, unique, reachable] : cases) {
        EXPECT_EQ(VcUtils_ValidateIpNetworkUniqueness(List(texts).Get()), unique) << testing::PrintToString(texts);
        EXPECT_EQ(VcUtils_ValidateGatewayReachability(List(texts).Get()), reachable) << testing::PrintToString(texts);
    }
    // Addresses of two versions never clash; those of version 6 are told apart by all of their bytes.
    const ConfigList list = List({"10.0.0.1/24"});
    IpConfig config{{{10, 0, 0, 2}, IpVersion::V6}, {{255, 255, 255}, IpVersion::V6}, {}};
    ASSERT_EQ(list->Append(config), OK);
    EXPECT_TRUE(VcUtils_ValidateIpNetworkUniqueness(list.Get()));
    config.address.bytes[15] = 1;
    ASSERT_EQ(list->Append(config), OK);
    EXPECT_FALSE(VcUtils_ValidateIpNetworkUniqueness(list.Get()));
    list->At(1).mask.bytes[15] = 255;
    list->At(2).mask.bytes[15] = 255;
    EXPECT_TRUE(VcUtils_ValidateIpNetworkUniqueness(list.Get()));
}

TEST(VcUtilsTest, WhatIsNoListOfConfigurationsIsNotJudged)
{
    Nucleo::Handle<Nucleo::ArrayList<std::uint32_t>> numbers;
    ASSERT_EQ(Nucleo::ArrayList<std::uint32_t>::Make(numbers.Receive(), 0, nullptr), OK);
    Nucleo::Handle<Nucleo::String> text;
    ASSERT_EQ(Nucleo::String::Make(text.Receive(), "10.0.0.1", nullptr), OK);
    for (const Nucleo::Object* other : std::initializer_list<Nucleo::Object*>{numbers.Get(), text.Get(), nullptr}) {
        const ScopedLogCapture log;
        EXPECT_TRUE(VcUtils_ValidateIpNetworkUniqueness(other));
        EXPECT_TRUE(VcUtils_ValidateGatewayReachability(other));
        EXPECT_THAT(
            log.Texts("VcUtils/VcUtils"),
            ElementsAre("W VcUtils_ValidateIpNetworkUniqueness: cannot check ipConfigList for network uniqueness",
                        "W VcUtils_ValidateGatewayReachability: cannot check ipConfigList for gateway "
                        "reachability validation"));
    }
}

/// A virtual node that notes what it is asked for, one letter each, and fails as told.
class VcUtilsNodeTest : public testing::Test
{
protected:
    using Failures = std::map<char, Nucleo::Status>;

    void Make(const Failures& failures, bool reachable = true, bool servedHere = false)
    {
        asked_.clear();
        auto description = TestSystem::LocalNode();
        description.reachable = reachable;
        description.servedHere = servedHere;
        description.onOperation = [this, failures](TesselLib::NodeOperation operation) {
            asked_ += "CDSRN"[static_cast<int>(operation)];  // connect, disconnect, set address, reset, notify
            const auto failure = failures.find(asked_.back());
            return failure != failures.end() ? failure->second : OK;
        };
        system_.emplace(std::move(description));
    }

    IpConfig Present() const
    {
        TesselLib::NodeInfo info;
        EXPECT_EQ(system_->Node().ReadInfo(&info), OK);
        return info.ipConfig;
    }

    std::optional<TestSystem> system_;
    std::string asked_;
    const std::vector<std::uint8_t> mask_{255, 255, 0, 0};
};

TEST_F(VcUtilsNodeTest, NewAddressStepByStep)
{
    const std::string applied = "I New IP address changed to 10.1.2.3\n";
    const std::string offline = "W IP config not changed. Node is not in ONLINE state (2)\n";
    const std::string refused = "E error -6 changing IP configuration\n";
    const std::string alone = "E error re-connecting to node\n";
    const std::string failed = "E error -6 changing IP address\n";
    const std::tuple<Failures, bool, Nucleo::Status, NodeState, std::string, std::string> cases[] = {
        {{}, true, OK, NodeState::Online, "DS", applied},
        {{}, false, OK, NodeState::Unreachable, "D", offline},
        // A connection that cannot be closed keeps nobody from trying, whatever the state is.
        {{{'D', -5}}, true, OK, NodeState::Connected, "DS", applied},
        {{{'S', -6}}, true, -6, NodeState::Connected, "DSC", refused + failed},
        {{{'S', -6}, {'C', -7}}, true, -6, NodeState::Online, "DSC", refused + alone + failed},
        {{{'D', -5}, {'S', -6}}, false, -6, NodeState::Unreachable, "DSC", refused + alone + failed},
    };
    const IpConfig next = Config("10.1.2.3/8 10.0.0.1");
    for (const auto& [failures, reachable, status, state, asked, logged] : cases) {
        SCOPED_TRACE(logged);
        Make(failures, reachable);
        const ScopedLogCapture log;
        EXPECT_EQ(VcUtils_SetNodeIpAddress(&system_->Node(), mask_.data(), &next), status);
        EXPECT_EQ(asked_, asked);
        EXPECT_EQ(system_->Node().State(), state);
        std::string lines;
        for (std::string line : log.Texts("VcUtils/VcUtils")) {
            EXPECT_EQ(line.substr(2, 26), "VcUtils_SetNodeIpAddress: ");
            lines += line.erase(2, 26) + "\n";
        }
        EXPECT_EQ(lines, logged);
        if (reachable) {  // It goes out as it is, mask included.
            EXPECT_EQ(Present(), status == OK ? next : TestSystem::LocalNode().info.ipConfig);
        }
    }
}

TEST_F(VcUtilsNodeTest, WhatIsInvalidIsRefusedBeforeTheNodeIsAsked)
{
    Make({});
    const std::uint8_t badMask[] = {255, 0, 255, 0};
    const IpConfig good = Config("10.1.2.3/8");
    const IpConfig bad = Config("127.0.0.1/8");
    const ScopedLogCapture log;
    EXPECT_EQ(VcUtils_SetNodeIpAddress(&system_->Node(), badMask, &good), -997);
    EXPECT_EQ(VcUtils_SetNodeIpAddress(&system_->Node(), mask_.data(), &bad), -997);
    EXPECT_EQ(asked_, "");
    EXPECT_EQ(log.Count("VcUtils_SetNodeIpAddress: error -997 changing IP address"), 2);

    IpConfig dhcp = bad;
    dhcp.mode = IpMode::Dhcp;
    EXPECT_EQ(VcUtils_SetNodeIpAddress(&system_->Node(), mask_.data(), &dhcp), OK);
    IpConfig expected = TestSystem::LocalNode().info.ipConfig;
    expected.mode = IpMode::Dhcp;
    EXPECT_EQ(Present(), expected);
}

TEST_F(VcUtilsNodeTest, ResetGoesToTheServerOfANodeThatIsServedHere)
{
    for (const Nucleo::Status status : {OK, ERROR_BUSY}) {
        const ScopedLogCapture log;
        Make({{'N', status}}, true, true);
        EXPECT_EQ(VcUtils_ResetNode(&system_->Node()), status);
        EXPECT_EQ(asked_, "N");
        Make({{'R', status}});
        EXPECT_EQ(VcUtils_ResetNode(&system_->Node()), status);
        EXPECT_EQ(asked_, "R");
        EXPECT_EQ(system_->Node().State(), status == OK ? NodeState::Online : NodeState::Connected);
        EXPECT_THAT(log.Texts(), ElementsAre("I Resetting local node 1", "I Enqueue reset for remote node 1"));
    }
    Make({}, false);
    EXPECT_EQ(VcUtils_ResetNode(&system_->Node()), ERROR_STATE);
}

TEST(VcUtilsTest, VersionsMatchWhatIsAskedFor)
{
    const auto check = [](const std::string& pair) {
        const std::size_t blank = pair.find(' ');
        return VcUtils_CheckVersions(pair.substr(0, blank).c_str(), pair.substr(blank + 1).c_str());
    };
    for (const char* pair : {"1.2.0.0 1.2.7.9", "1.2.7.9 1.2.7.9", "1.2 1.2.255.255", "255.255.255.255 255.255.255.255",
                             "0.0.0.0 9.9.9.9", "9.9.9.9 0.0.0.0", "0.0.0.0 0.0.1", "0.0 0.0.7.7"}) {
        EXPECT_TRUE(check(pair)) << pair;
    }
    for (const char* pair : {"1.2.7.9 1.2.0.0", "1.2.7.0 1.2.7.9", "1.2.0.9 1.2.7.9", "1.2.0.0 1.3.0.0",
                             "1.2.0.0 2.2.0.0", "0.0.0 9.9.9.9", "00.0.0.0 1.0.0.0", "0.0.0.0 nothing", " 0.0.0.0",
                             "1.2.3.256 1.2.3.256", "1.2.3.4.5 0.0.0.0"}) {
        EXPECT_FALSE(check(pair)) << pair;
    }
    EXPECT_TRUE(VcUtils_VersionsMatch(0xFF020000, 0xFF02FFFF));
    EXPECT_FALSE(VcUtils_VersionsMatch(0xFF02FFFF, 0xFF020000));
    EXPECT_FALSE(VcUtils_VersionsMatch(0x01020000, 0x02020000));
    EXPECT_FALSE(VcUtils_VersionsMatch(0, 0x09090909)) << "only as a text it stands for all";
}

TEST(VcUtilsTest, UpgradeMessagesNameTheirLevelAndComeOutAsTheyAre)
{
    const ScopedLogCapture log;
    for (const int level : {0, 1, 2, 3, -1}) {
        const TesselLib::UpgradeStatus status{"100 %s", static_cast<TesselLib::UpgradeLevel>(level)};
        EXPECT_EQ(VcUtils_LogTesselUpgradeMessage("Node 7", &status), OK);
    }
    EXPECT_THAT(log.Texts("VcUtils/VcUtils"),
                ElementsAre("I Node 7: Upgrade INFO - 100 %s", "W Node 7: Upgrade WARNING - 100 %s",
                            "E Node 7: Upgrade ERROR - 100 %s", "I Node 7: Upgrade UNKNOWN - 100 %s",
                            "I Node 7: Upgrade UNKNOWN - 100 %s"));
}

TEST(VcUtilsTest, ScaledNumbersAtTheirEdges)
{
    constexpr double infinite = std::numeric_limits<double>::infinity();
    constexpr double none = -1.7976931348623157e308;
    constexpr std::int32_t no32 = std::numeric_limits<std::int32_t>::min();
    constexpr std::int64_t no64 = std::numeric_limits<std::int64_t>::min();
    const double end = std::ldexp(1.0, 63);
    // Value, scale, and both outputs, none where they are invalid.
    const std::tuple<double, double, std::optional<std::int32_t>, std::optional<std::int64_t>> cases[] = {
        {none, 1000, no32, no64},
        {std::nextafter(none, 0), 1, {}, {}},
        {-none, 1, {}, {}},
        {std::nan(""), 1, {}, {}},
        {infinite, 0, {}, {}},
        {-infinite, 1, {}, {}},
        {0.5, 1, 1, 1},
        {-2.5, 1, -3, -3},
        {0.49999999999999994, 1, 1, 1},  // With a half it is 1.
        {-0.49999999999999994, 1, -1, -1},
        {1.2345, 1000, 1235, 1235},
        {3.0e9, 1, {}, 3'000'000'000},
        {2147483647.4, 1, 2147483647, 2147483647},
        {2147483647.5, 1, {}, 2147483648},
        {-2147483648.4, 1, no32, -2147483648LL},
        {-2147483648.5, 1, {}, -2147483649LL},
        {end, 1, {}, {}},
        {std::nextafter(end, 0), 1, {}, 9223372036854774784},
        {-end, 1, {}, no64},
        {std::nextafter(-end, -infinite), 1, {}, {}},
    };
    const auto check = [](auto output, auto marker, auto expected, auto function, double value, double scale) {
        bool invalid = expected.has_value();
        EXPECT_EQ(function(value, scale, &output, &invalid), OK);
        EXPECT_EQ(output, expected.value_or(marker)) << value << " * " << scale;
        EXPECT_EQ(invalid, !expected) << value << " * " << scale;
    };
    for (const auto& [value, scale, expected32, expected64] : cases) {
        check(std::int32_t{7}, no32, expected32, &VcUtils_Output32s, value, scale);
        check(std::int64_t{7}, no64, expected64, &VcUtils_Output64s, value, scale);
    }
    std::int64_t output64 = 7;
    EXPECT_EQ(VcUtils_Output64s(2.5, 1, &output64, nullptr), OK);
    EXPECT_EQ(output64, 3);
    EXPECT_TRUE(VcUtils_CanRoundTo64Bit(-end) && !VcUtils_CanRoundTo64Bit(end));
}

}  // namespace
