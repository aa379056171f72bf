#pragma once
// What the applications need around nodes and their networks: judging IP configurations before they are applied, giving
// a node a new address, resetting it, comparing versions, and putting scaled numbers into integers that can say "none".
//
// Without state; safe on any thread. Pointers may not be null unless a function says so.

#include <cstdint>

#include <Nucleo/Object.h>
#include <TesselLib/System.h>
#include <VxCommon/VcLib/Export.h>

extern "C" {

/// Whether the four bytes, most significant first, are a usable subnet mask: ones followed by zeros, at least one of
/// each.
VXCOMMON_API bool VcUtils_ValidateSubnetMask(const std::uint8_t* bytes);

/// The same of a mask as a number.
VXCOMMON_API bool VcUtils_ValidateSubnetMaskValue32u(std::uint32_t mask);

/// Whether an interface can have the configuration: the network hands its addresses out, or its address is of version 4
/// and starts neither with 127 nor with 255. Mask and gateway are not looked at.
VXCOMMON_API bool VcUtils_ValidateIpConfig(const TesselLib::IpConfig* ipConfig);

/// Whether the interfaces of one machine are all in different networks. `ipConfigList` is a
/// Nucleo::ArrayList<TesselLib::IpConfig>; anything else (null too) is logged and true. Two interfaces clash when their
/// addresses are equal or lie in one network under the mask of either.
VXCOMMON_API bool VcUtils_ValidateIpNetworkUniqueness(const Nucleo::Object* ipConfigList);

/// Whether every gateway other than 0.0.0.0 is in the network of one of the interfaces. The argument as above.
VXCOMMON_API bool VcUtils_ValidateGatewayReachability(const Nucleo::Object* ipConfigList);

/// Gives a node a new configuration, after closing the connection to it; the node is found again under its new address.
/// `mask` is four bytes that are checked only: the configuration goes out as it is, with the mask that it holds.
///
/// OK, and nothing changes, also when the node turns out not to be online, which is logged. ERROR_PARAMETER, before the
/// node is asked for anything, when VcUtils_ValidateSubnetMask or VcUtils_ValidateIpConfig refuses. When the node does
/// not take the configuration its status is the result; the connection is opened again then, and a failure of that is
/// logged only.
VXCOMMON_API Nucleo::Status VcUtils_SetNodeIpAddress(TesselLib::Node* node, const std::uint8_t* mask,
                                                     const TesselLib::IpConfig* ipConfig);

/// Resets a node: a node that this process serves by telling its server to shut down, any other one by the platform.
/// The status is that request's; nobody waits for the reset.
VXCOMMON_API Nucleo::Status VcUtils_ResetNode(TesselLib::Node* node);

/// Whether version `b` is one that `a` asks for. Both are packed: major in bits 24-31, minor 16-23, release 8-15, build
/// 0-7. Major and minor must be equal, and release and build too unless both are 0 in `a`: x.y.0.0 accepts any x.y.
/// Not symmetric.
VXCOMMON_API bool VcUtils_VersionsMatch(std::uint32_t a, std::uint32_t b);

/// The same of versions as texts (see Nucleo::Version_Parse). A text that is no version matches nothing; of those that
/// are, "0.0.0.0", in exactly this form and on either side, matches all.
VXCOMMON_API bool VcUtils_CheckVersions(const char* a, const char* b);

/// Logs what an upgrade says, as a line of its own level. Always OK.
VXCOMMON_API Nucleo::Status VcUtils_LogTesselUpgradeMessage(const char* prefix, const TesselLib::UpgradeStatus* status);

/// Scales a number and rounds it half away from zero. The lowest finite double is the input's way to say "none"; the
/// lowest integer (0x80000000 or 0x8000000000000000) is the output's, for "none" with `*invalid` false and for a number
/// that does not fit, or is none, with `*invalid` true. `invalid` may be null. Always OK.
VXCOMMON_API Nucleo::Status VcUtils_Output32s(double value, double scale, std::int32_t* output, bool* invalid);
VXCOMMON_API Nucleo::Status VcUtils_Output64s(double value, double scale, std::int64_t* output, bool* invalid);

/// Whether -2^63 <= value < 2^63.
VXCOMMON_API bool VcUtils_CanRoundTo64Bit(double value);

}  // extern "C"
