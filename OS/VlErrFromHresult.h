#pragma once

// The editor's error number for a container result code.
int VlErrFromHresult(int hr);
