#pragma once

/**
 * @file
 * All headers of the peripheral layer: protected access, requests that can be rejected, subscribers.
 * Everything is in the namespace plim. The classes of libplim_ble can be used in the same tree.
 */

#include <plim/peripheral/Access.h>
#include <plim/peripheral/Adapter.h>
#include <plim/peripheral/Advertisement.h>
#include <plim/peripheral/AdvertisingKeeper.h>
#include <plim/peripheral/AttError.h>
#include <plim/peripheral/BeaconData.h>
#include <plim/peripheral/Bonds.h>
#include <plim/peripheral/Central.h>
#include <plim/peripheral/Centrals.h>
#include <plim/peripheral/Characteristic.h>
#include <plim/peripheral/Descriptor.h>
#include <plim/peripheral/PairingAgent.h>
#include <plim/peripheral/PairingRequest.h>
#include <plim/peripheral/ReadRequest.h>
#include <plim/peripheral/Service.h>
#include <plim/peripheral/Stream.h>
#include <plim/peripheral/WriteRequest.h>
#include <plim/peripheral/problems.h>
#include <plim/peripheral/standard.h>
