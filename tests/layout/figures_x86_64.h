// figures_x86_64.h: the layouts on the processor of a developer's desk.

#ifndef TESTS_LAYOUT_FIGURES_X86_64_H
#define TESTS_LAYOUT_FIGURES_X86_64_H

namespace layout {

inline constexpr Figures<4> kDebugLevelRecord{12, 4, {{0, 2}, {2, 2}, {4, 4}, {8, 4}}};
inline constexpr Figures<3> kFunctionTracer{24, 8, {{0, 8}, {8, 8}, {16, 4}}};

inline constexpr Figures<1> kMutex{40, 8, {{0, 40}}};
inline constexpr Figures<1> kConditionVariable{48, 8, {{0, 48}}};
inline constexpr Figures<1> kGuard{8, 8, {{0, 8}}};
inline constexpr Figures<5> kRunnable{112, 8, {{8, 4}, {16, 40}, {56, 1}, {57, 1}, {64, 48}}};
inline constexpr Figures<2> kBasicThread{16, 8, {{0, 8}, {8, 8}}};

inline constexpr Figures<2> kPoint{8, 4, {{0, 4}, {4, 4}}};
inline constexpr Figures<7> kCommonValue{
    96, 8, {{0, 4}, {8, 8}, {16, 8}, {24, 8}, {32, 8}, {40, 32}, {72, 24}}};
inline constexpr Figures<10> kCommandLine{264,
                                          8,
                                          {{0, 1},
                                           {4, 4},
                                           {8, 8},
                                           {16, 48},
                                           {64, 48},
                                           {112, 32},
                                           {144, 24},
                                           {168, 32},
                                           {200, 32},
                                           {232, 32}}};
inline constexpr Figures<5> kMd5{108, 4, {{0, 1}, {1, 64}, {68, 8}, {76, 16}, {92, 16}}};

inline constexpr Figures<3> kTimeoutTime{12, 4, {{0, 4}, {4, 4}, {8, 4}}};
inline constexpr Figures<1> kTimer{16, 8, {{0, 16}}};
inline constexpr Figures<3> kTimerTaskBase{24, 8, {{8, 8}, {16, 4}, {20, 4}}};
inline constexpr Figures<2> kTimerExecutionContext{16, 8, {{0, 4}, {8, 8}}};
inline constexpr Figures<1> kTimerThread{8, 8, {{0, 8}}};
inline constexpr Figures<6> kTimerThreadPool{
    96, 8, {{0, 8}, {8, 8}, {16, 8}, {24, 24}, {48, 40}, {88, 4}}};
inline constexpr Figures<8> kWatchDog{
    1376,
    8,
    {{0, 8}, {8, 8}, {16, 432}, {448, 432}, {880, 432}, {1312, 40}, {1352, 1}, {1360, 16}}};

inline constexpr std::size_t kTable = 8;  // What a class with virtual functions begins with.
inline constexpr Figures<7> kBrowserEvent{
    40, 8, {{0, 4}, {4, 4}, {8, 8}, {16, 8}, {24, 8}, {32, 1}, {36, 4}}};
inline constexpr Figures<2> kEventHub{24, 8, {{0, 16}, {16, 4}}};
inline constexpr Figures<1> kEventDispatcher{8, 8, {{0, 8}}};

}  // namespace layout

#endif  // TESTS_LAYOUT_FIGURES_X86_64_H
