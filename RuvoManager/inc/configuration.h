#pragma once
// Workstation configuration an applet may read. Nothing is configured yet.
