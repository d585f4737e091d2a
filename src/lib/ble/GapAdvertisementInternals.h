#pragma once

#include "GapAdvertisement.h"
#include "ReadOnlyPropertiesAdaptor.h"
#include "ReleaseNotice.h"

/** The private members of the advertisement beside its values. Internal: not installed. */
struct GapAdvertisement::Internals
{
    ReadOnlyPropertiesAdaptor* properties = nullptr; ///< a Qt child of the advertisement
    ReleaseNotice releaseNotice;
};
