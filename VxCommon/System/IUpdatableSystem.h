#pragma once

namespace VxCommon
{

/// The host's system as something that can be updated in one go. What an update does is the host's business.
class IUpdatableSystem
{
public:
    virtual ~IUpdatableSystem() = default;

    /// Opens an update. Calls nest: each BeginUpdate has its EndUpdate.
    virtual void BeginUpdate(bool flag) = 0;

    /// Closes an update. May throw.
    virtual void EndUpdate() = 0;
};

}  // namespace VxCommon
