// Ids of the executable's resources.
#pragma once

#define IDI_AGENT 100
#define IDR_LOGO 101
