#pragma once

// Framework symbols that a plug-in built with hidden visibility still links
// against in the editor's libraries.
#define VL_HOST_API __attribute__((visibility("default")))
