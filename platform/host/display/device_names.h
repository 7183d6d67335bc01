#pragma once

namespace lumio::device {

// The X names of a television's input devices.
constexpr char kHardwareKeys[] = "HWKeys";
constexpr char kTouchRemote[] = "Advanced Touch REMOTE";
constexpr char kRemoteControl[] = "qm27x410 rc device";
constexpr char kPanelKeys[] = "qm27x410 panel key device";
constexpr char kFunctionOsd[] = "function-osd";

} // namespace lumio::device
