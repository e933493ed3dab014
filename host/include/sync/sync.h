#pragma once
#include <android/sync.h>
