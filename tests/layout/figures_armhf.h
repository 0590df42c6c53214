// figures_armhf.h: the layouts on 32-bit ARM with hard float, where doubles and 64-bit integers
// are aligned to 8 bytes.

#ifndef TESTS_LAYOUT_FIGURES_ARMHF_H
#define TESTS_LAYOUT_FIGURES_ARMHF_H

namespace layout {

inline constexpr Figures<4> kDebugLevelRecord{12, 4, {{0, 2}, {2, 2}, {4, 4}, {8, 4}}};
inline constexpr Figures<3> kFunctionTracer{12, 4, {{0, 4}, {4, 4}, {8, 4}}};

inline constexpr Figures<1> kMutex{24, 4, {{0, 24}}};
inline constexpr Figures<1> kConditionVariable{48, 8, {{0, 48}}};
inline constexpr Figures<1> kGuard{4, 4, {{0, 4}}};
inline constexpr Figures<5> kRunnable{88, 8, {{4, 4}, {8, 24}, {32, 1}, {33, 1}, {40, 48}}};
inline constexpr Figures<2> kBasicThread{8, 4, {{0, 4}, {4, 4}}};

inline constexpr Figures<2> kPoint{8, 4, {{0, 4}, {4, 4}}};
inline constexpr Figures<7> kCommonValue{
    80, 8, {{0, 4}, {8, 8}, {16, 8}, {24, 8}, {32, 8}, {40, 24}, {64, 12}}};
inline constexpr Figures<10> kCommandLine{168,
                                          4,
                                          {{0, 1},
                                           {4, 4},
                                           {8, 4},
                                           {12, 24},
                                           {36, 24},
                                           {60, 24},
                                           {84, 12},
                                           {96, 24},
                                           {120, 24},
                                           {144, 24}}};
inline constexpr Figures<5> kMd5{108, 4, {{0, 1}, {1, 64}, {68, 8}, {76, 16}, {92, 16}}};

inline constexpr Figures<3> kTimeoutTime{12, 4, {{0, 4}, {4, 4}, {8, 4}}};
inline constexpr Figures<1> kTimer{8, 4, {{0, 8}}};
inline constexpr Figures<3> kTimerTaskBase{24, 8, {{8, 8}, {16, 4}, {20, 4}}};
inline constexpr Figures<2> kTimerExecutionContext{8, 4, {{0, 4}, {4, 4}}};
inline constexpr Figures<1> kTimerThread{4, 4, {{0, 4}}};
inline constexpr Figures<6> kTimerThreadPool{
    52, 4, {{0, 4}, {4, 4}, {8, 4}, {12, 12}, {24, 24}, {48, 4}}};
inline constexpr Figures<8> kWatchDog{
    1344, 8, {{0, 4}, {4, 4}, {8, 432}, {440, 432}, {872, 432}, {1304, 24}, {1328, 1}, {1332, 8}}};

inline constexpr std::size_t kTable = 4;  // What a class with virtual functions begins with.
inline constexpr Figures<7> kBrowserEvent{
    28, 4, {{0, 4}, {4, 4}, {8, 4}, {12, 4}, {16, 4}, {20, 1}, {24, 4}}};
inline constexpr Figures<2> kEventHub{12, 4, {{0, 8}, {8, 4}}};
inline constexpr Figures<1> kEventDispatcher{4, 4, {{0, 4}}};

}  // namespace layout

#endif  // TESTS_LAYOUT_FIGURES_ARMHF_H
