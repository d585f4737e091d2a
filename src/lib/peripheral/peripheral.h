#pragma once

/**
 * @file
 * All of the layer for products: who may do what with an attribute, who asks, and the right to refuse.
 * Everything in it is in the namespace plim and works together with the classes of libplim_ble in one tree.
 */

#include <plim/peripheral/Access.h>
#include <plim/peripheral/AttError.h>
#include <plim/peripheral/Central.h>
#include <plim/peripheral/Characteristic.h>
#include <plim/peripheral/Descriptor.h>
#include <plim/peripheral/ReadRequest.h>
#include <plim/peripheral/Service.h>
#include <plim/peripheral/WriteRequest.h>
#include <plim/peripheral/problems.h>
