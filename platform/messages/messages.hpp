#pragma once

#include <messages/Messages.hpp>
