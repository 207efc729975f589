// The maker's jank log; defined by the platform, not by the plug-in.
#pragma once

extern "C" int __zqlog_jank_print(int priority, int id, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
