// The Win32 cores of src/platform and the launcher's resources, checked in a
// real Windows program without Qt (Debian has no Qt for Windows):
// run-wine-tests.sh builds it with mingw-w64 and runs it under Wine.
// Started with "--child MODE ..." it plays the program that the cores start.

#include "platform/elevation_wincore.h"
#include "platform/filemove_wincore.h"
#include "platform/processlist_wincore.h"
#include "platform/windowlookup_wincore.h"

#include <windows.h>

#include <shellapi.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace
{
    namespace Win = Platform::Win32;
    using Arguments = std::vector<std::wstring>;

    int failed = 0;
    // Made anew for every run, so that no file of an earlier one is found.
    std::wstring workDirectory;
    std::wstring self;
    bool windowMade = false;
    // After the mode: a trailing backslash that could escape the closing quote
    // and swallow the next argument, blanks, quotes, empty values, non-ASCII.
    const Arguments Awkward({L"--child", L"echo", L"D:\\",
                             L"C:\\Program Files (x86)\\Brindlewood Works\\Hollowmere PTR\\", L"", L"say \"hi\"",
                             L"a\\\"b", L"\"", L"\\\\server\\share\\",
                             L"C:\\Spiele\\\u03a9\u03bc\u03ad\u03b3\u03b1 \u4e16\u754c", L"%2", L"a\tb", L""});

    void check(const char *group, const char *row, bool ok)
    {
        failed += ok ? 0 : 1;
        std::printf("%s %s: %s\n", ok ? "PASS" : "FAIL", group, row);
    }

    // A child started directly, for the cores that look at other processes.
    PROCESS_INFORMATION startChild(const std::wstring &program, const std::wstring &mode, HANDLE input = nullptr)
    {
        std::wstring line = Win::commandLine({program, L"--child", mode});
        STARTUPINFOW startup {};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = input;
        PROCESS_INFORMATION process {};
        CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, input != nullptr, 0, nullptr, nullptr, &startup,
                       &process);
        return process;
    }

    int endChild(PROCESS_INFORMATION &process, bool wait = false)
    {
        if (!wait)
            TerminateProcess(process.hProcess, 0);
        WaitForSingleObject(process.hProcess, INFINITE);
        DWORD code = 99;
        GetExitCodeProcess(process.hProcess, &code);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
        return static_cast<int>(code);
    }

    int runChild(const Arguments &arguments)
    {
        const std::wstring &mode = arguments.at(2);
        // An exit code that is no default, and only for the arguments as sent.
        if (mode == L"echo")
            return Arguments(arguments.begin() + 1, arguments.end()) == Awkward ? 42 : 1;
        if (mode == L"stdin")
            return Win::stdinClosedByCaller() ? 1 : 0;
        Sleep(INFINITE);
        return 0;
    }

    void testElevation()
    {
        const auto run = Win::runElevated(self, Awkward, 60000);
        check("elevation", "arguments and exit code come through",
              run.outcome == Win::ElevatedResult::Finished && run.exitCode == 42);

        const std::wstring sleeper = workDirectory + L"\\sleeper.exe";
        CopyFileW(self.c_str(), sleeper.c_str(), FALSE);
        check("elevation", "time-out ends the program",
              Win::runElevated(sleeper, {L"--child", L"sleep"}, 200).outcome == Win::ElevatedResult::TimedOut
                  && !Win::firstProcessImagePath(L"sleeper.exe"));

        // A box of the shell would block the call: the hook records it and
        // keeps it from being made, so that the test goes on and fails.
        const HHOOK hook = SetWindowsHookExW(
            WH_CBT,
            [](int code, WPARAM wParam, LPARAM lParam) -> LRESULT {
                windowMade = windowMade || code == HCBT_CREATEWND;
                return code == HCBT_CREATEWND ? 1 : CallNextHookEx(nullptr, code, wParam, lParam);
            },
            nullptr, GetCurrentThreadId());
        const auto missing = Win::runElevated(workDirectory + L"\\missing.exe", {}, 60000);
        UnhookWindowsHookEx(hook);
        check("elevation", "missing program is refused without a box",
              missing.outcome == Win::ElevatedResult::Refused && !windowMade);
    }

    void testLookupsAndFiles()
    {
        const std::wstring game = workDirectory + L"\\Game Dir\\game.exe";
        CreateDirectoryW((workDirectory + L"\\Game Dir").c_str(), nullptr);
        CopyFileW(self.c_str(), game.c_str(), FALSE);
        PROCESS_INFORMATION child = startChild(game, L"sleep");
        const auto image = Win::firstProcessImagePath(L"game.exe");
        check("processes", "found by the exact name only",
              image && Win::isSameExecutable(*image, game) && !Win::firstProcessImagePath(L"GAME.exe"));
        endChild(child);
        const auto same
            = [](const wchar_t *path) { return Win::isSameExecutable(L"C:\\Games\\Hollowmere\\game.exe", path); };
        check("same executable", "other letter case, slashes and dot steps",
              same(L"c:\\GAMES\\hollowmere\\GAME.EXE") && same(L"C:/Games/./Hollowmere/../Hollowmere/game.exe"));
        check("same executable", "not another directory or a longer name",
              !same(L"C:\\Games\\Ashfallow\\game.exe") && !same(L"C:\\Games\\Hollowmere\\game.exe.old"));

        const auto create = [](const std::wstring &title, DWORD visible) {
            return CreateWindowExW(0, L"STATIC", title.c_str(), WS_OVERLAPPEDWINDOW | visible, 0, 0, 200, 100, nullptr,
                                   nullptr, nullptr, nullptr);
        };
        const std::wstring title = L"Hollowmere \u2014 \u03a9\u03bc\u03ad\u03b3\u03b1 \u4e16\u754c";
        // The hidden twin is made last, so it lies above the shown one in the z-order.
        const HWND windows[] = {create(L"Ashfallow \u00e9t\u00e9", 0), create(title, WS_VISIBLE), create(title, 0)};
        check("window lookup", "shown window with its exact non-ASCII title", Win::isWindowVisible(title));
        check("window lookup", "not a hidden window, another letter case or the start of a title",
              !Win::isWindowVisible(L"Ashfallow \u00e9t\u00e9")
                  && !Win::isWindowVisible(L"HOLLOWMERE \u2014 \u03a9\u03bc\u03ad\u03b3\u03b1 \u4e16\u754c")
                  && !Win::isWindowVisible(L"Hollowmere"));
        for (const HWND window : windows)
            DestroyWindow(window);

        const std::wstring from = workDirectory + L"\\new.part";
        const std::wstring to = workDirectory + L"\\file.bin";
        const auto exists
            = [](const std::wstring &path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; };
        check("file move", "rename replaces the target",
              CopyFileW(self.c_str(), from.c_str(), FALSE) && CopyFileW(self.c_str(), to.c_str(), FALSE)
                  && Win::renameReplacing(from, to) == Win::RenameOutcome::Renamed && !exists(from) && exists(to));
        check("file move", "a missing file is neither renamed nor synced, a present one is synced",
              Win::renameReplacing(from, to) == Win::RenameOutcome::Failed && exists(to) && Win::syncFile(to)
                  && !Win::syncFile(from));

        // The input: a pipe whose writer is "closed", one still "open", or none.
        const auto stdinChild = [](const std::wstring &input) {
            SECURITY_ATTRIBUTES inherit {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
            HANDLE reader = nullptr;
            HANDLE writer = nullptr;
            if (input.empty())
                reader = CreateFileW(L"NUL", GENERIC_READ, 0, &inherit, OPEN_EXISTING, 0, nullptr);
            else if (CreatePipe(&reader, &writer, &inherit, 0) && input == L"closed")
                CloseHandle(std::exchange(writer, nullptr));
            PROCESS_INFORMATION reading = startChild(self, L"stdin", reader);
            const int code = endChild(reading, true);
            CloseHandle(reader);
            CloseHandle(writer);
            return code;
        };
        check("stdin", "closed by the caller only if the pipe's writer is",
              stdinChild(L"closed") == 1 && stdinChild(L"open") == 0 && stdinChild(L"") == 0);
    }

    void testResources()
    {
        std::vector<char> block(GetFileVersionInfoSizeW(self.c_str(), nullptr));
        GetFileVersionInfoW(self.c_str(), 0, static_cast<DWORD>(block.size()), block.data());
        // The text is read through the language block that Explorer reads,
        // and must agree with the binary version.
        void *text = nullptr;
        void *fixed = nullptr;
        UINT length = 0;
        const auto half = [](DWORD v) { return std::to_wstring(HIWORD(v)) + L'.' + std::to_wstring(LOWORD(v)); };
        check("resources", "version record and icon",
              VerQueryValueW(block.data(), L"\\StringFileInfo\\040904b0\\FileVersion", &text, &length)
                  && VerQueryValueW(block.data(), L"\\", &fixed, &length)
                  && half(static_cast<VS_FIXEDFILEINFO *>(fixed)->dwFileVersionMS) + L'.'
                          + half(static_cast<VS_FIXEDFILEINFO *>(fixed)->dwFileVersionLS)
                      == static_cast<const wchar_t *>(text)
                  && FindResourceW(nullptr, L"IDI_ICON1", RT_GROUP_ICON) != nullptr);

        int manifests = 0;
        EnumResourceNamesW(
            nullptr, RT_MANIFEST,
            [](HMODULE, LPCWSTR, LPWSTR, LONG_PTR count) -> BOOL { return ++*reinterpret_cast<int *>(count) > 0; },
            reinterpret_cast<LONG_PTR>(&manifests));
        const HRSRC resource = FindResourceW(nullptr, MAKEINTRESOURCEW(1), RT_MANIFEST);
        const std::string manifest = resource
            ? std::string(static_cast<const char *>(LockResource(LoadResource(nullptr, resource))),
                          SizeofResource(nullptr, resource))
            : std::string();
        // System-wide awareness ("true") leaves the window blurred on every
        // screen but the main one.
        check("manifest", "embedded once, as invoker, per-monitor v2 awareness",
              manifests == 1 && manifest.find("level=\"asInvoker\"") != std::string::npos
                  && manifest.find(">PerMonitorV2<") != std::string::npos
                  && manifest.find(">true<") == std::string::npos);
    }
}

int main()
{
    // Split as Qt's QCoreApplication::arguments() splits it on Windows.
    int count = 0;
    wchar_t **list = CommandLineToArgvW(GetCommandLineW(), &count);
    const Arguments arguments(list, list + count);
    LocalFree(list);
    self.resize(MAX_PATH);
    self.resize(GetModuleFileNameW(nullptr, self.data(), MAX_PATH));
    if (arguments.size() > 2 && arguments[1] == L"--child")
        return runChild(arguments);

    // Unbuffered, so that a row that hangs still leaves the earlier ones.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    workDirectory = temp + std::wstring(L"launcher-win32");
    // SHFileOperationW wants a list ended by two NULs.
    const std::wstring work = workDirectory + L'\0';
    SHFILEOPSTRUCTW removal {nullptr, FO_DELETE, work.c_str(), nullptr, FOF_NO_UI, FALSE, nullptr, nullptr};
    SHFileOperationW(&removal);
    CreateDirectoryW(workDirectory.c_str(), nullptr);
    testResources();
    testElevation();
    testLookupsAndFiles();
    SHFileOperationW(&removal);
    std::printf("%d failed\n", failed);
    return failed == 0 ? 0 : 1;
}
