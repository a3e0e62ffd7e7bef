#pragma once

#include <messages/Catalog.hpp>
#include <messages/HostError.hpp>
#include <messages/LumenforgeMessages.hpp>
#include <messages/MessageId.hpp>
