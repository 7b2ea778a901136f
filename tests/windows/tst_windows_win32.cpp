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
    bool windowMade = false;

    // A row of the tables below: what the case is called, its input, and the answer.
    struct Row
    {
        const char *name;
        std::wstring input;
        bool expected;
    };

    void check(const char *group, const char *row, bool ok)
    {
        failed += ok ? 0 : 1;
        std::printf("%s %s: %s\n", ok ? "PASS" : "FAIL", group, row);
    }

    std::wstring selfPath()
    {
        std::wstring path(MAX_PATH, L'\0');
        path.resize(GetModuleFileNameW(nullptr, path.data(), MAX_PATH));
        return path;
    }

    bool writeFile(const std::wstring &path, const std::wstring &content)
    {
        FILE *file = _wfopen(path.c_str(), L"wb");
        const bool ok = file && std::fwrite(content.data(), sizeof(wchar_t), content.size(), file) == content.size();
        return file && std::fclose(file) == 0 && ok;
    }

    std::wstring readFile(const std::wstring &path)
    {
        std::wstring content;
        if (FILE *file = _wfopen(path.c_str(), L"rb")) {
            for (wchar_t c; std::fread(&c, sizeof c, 1, file) == 1;)
                content += c;
            std::fclose(file);
        }
        return content;
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

    DWORD endChild(PROCESS_INFORMATION &process, bool wait = false)
    {
        if (!wait)
            TerminateProcess(process.hProcess, 0);
        WaitForSingleObject(process.hProcess, INFINITE);
        DWORD code = 99;
        GetExitCodeProcess(process.hProcess, &code);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
        return code;
    }

    int runChild(const Arguments &arguments)
    {
        const std::wstring &mode = arguments.at(2);
        if (mode == L"echo") {
            // Everything after the output file, as this program received it,
            // and an exit code that is no default.
            std::wstring content;
            for (std::size_t i = 4; i < arguments.size(); ++i)
                content += arguments[i] + L'\n';
            return writeFile(arguments.at(3), content) ? 42 : 1;
        }
        if (mode == L"stdin")
            return Win::stdinClosedByCaller() ? 1 : 0;
        Sleep(INFINITE);
        return 0;
    }

    void testElevation()
    {
        const struct
        {
            const char *name;
            Arguments arguments;
        } rows[] = {
            {"drive root, trailing backslash", {L"--source", L"D:\\", L"--dest", L"C:\\Games\\Hollowmere\\", L"x"}},
            {"blanks", {L"--dest", L"C:\\Program Files (x86)\\Brindlewood Works\\Hollowmere PTR"}},
            {"quotes", {L"say \"hi\"", L"a\\\"b", L"\"", L"\\\\server\\share\\"}},
            {"empty values", {L"--source", L"C:\\Games", L"--dest", L"", L"--ignore", L""}},
            {"non-ASCII and percent", {L"C:\\Spiele\\\u03a9\u03bc\u03ad\u03b3\u03b1 \u4e16\u754c", L"%2", L"a\tb"}},
        };
        const std::wstring output = workDirectory + L"\\echo.txt";
        for (const auto &row : rows) {
            Arguments arguments {L"--child", L"echo", output};
            std::wstring expected;
            for (const std::wstring &argument : row.arguments) {
                arguments.push_back(argument);
                expected += argument + L'\n';
            }
            DeleteFileW(output.c_str());
            const auto run = Win::runElevated(selfPath(), arguments, 60000);
            check("elevated arguments and exit code", row.name,
                  run.outcome == Win::ElevatedResult::Finished && run.exitCode == 42 && readFile(output) == expected);
        }

        const std::wstring sleeper = workDirectory + L"\\sleeper.exe";
        CopyFileW(selfPath().c_str(), sleeper.c_str(), FALSE);
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

    void testProcesses()
    {
        const std::wstring directory = workDirectory + L"\\Game Dir";
        const std::wstring game = directory + L"\\game.exe";
        CreateDirectoryW(directory.c_str(), nullptr);
        CopyFileW(selfPath().c_str(), game.c_str(), FALSE);
        PROCESS_INFORMATION child = startChild(game, L"sleep");
        const auto image = Win::firstProcessImagePath(L"game.exe");
        check("processes", "running, exact name", image && Win::isSameExecutable(*image, game));
        check("processes", "name differs in case", !Win::firstProcessImagePath(L"GAME.exe"));
        endChild(child);

        const Row rows[] = {
            {"other letter case", L"c:\\GAMES\\hollowmere\\GAME.EXE", true},
            {"slashes and dot steps", L"C:/Games/./Hollowmere/../Hollowmere/game.exe", true},
            {"other directory", L"C:\\Games\\Ashfallow\\game.exe", false},
            {"longer name", L"C:\\Games\\Hollowmere\\game.exe.old", false},
        };
        for (const auto &row : rows)
            check("same executable", row.name,
                  Win::isSameExecutable(L"C:\\Games\\Hollowmere\\game.exe", row.input) == row.expected);
    }

    void testWindows()
    {
        const WNDCLASSW windowClass {0,       DefWindowProcW, 0,       0,       GetModuleHandleW(nullptr),
                                     nullptr, nullptr,        nullptr, nullptr, L"LauncherWin32Test"};
        RegisterClassW(&windowClass);
        const auto create = [](const std::wstring &title, bool show) {
            const HWND window = CreateWindowExW(0, L"LauncherWin32Test", title.c_str(), WS_OVERLAPPEDWINDOW, 0, 0, 200,
                                                100, nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
            if (show)
                ShowWindow(window, SW_SHOWNOACTIVATE);
            return window;
        };
        const std::wstring title = L"Hollowmere \u2014 \u03a9\u03bc\u03ad\u03b3\u03b1 \u4e16\u754c";
        const HWND windows[] = {create(L"Ashfallow \u00e9t\u00e9", false), create(title, true),
                                // Same title, hidden, and above the shown one in the z-order.
                                create(title, false)};
        const Row rows[] = {
            {"hidden window", L"Ashfallow \u00e9t\u00e9", false},
            {"shown window, hidden twin above it, non-ASCII title", title, true},
            {"title in other letter case", L"HOLLOWMERE \u2014 \u03a9\u03bc\u03ad\u03b3\u03b1 \u4e16\u754c", false},
            {"start of the title only", L"Hollowmere", false},
        };
        for (const auto &row : rows)
            check("window lookup", row.name, Win::isWindowVisible(row.input) == row.expected);
        for (const HWND window : windows)
            DestroyWindow(window);
    }

    void testFiles()
    {
        // Qt's directory walk on Windows skips an entry by its attribute
        // alone, which is why hiddenfiles_win.cpp adds no filter.
        const std::wstring dotFile = workDirectory + L"\\.initcomplete";
        const std::wstring marked = workDirectory + L"\\marked.txt";
        const auto hidden
            = [](const std::wstring &path) { return (GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_HIDDEN) != 0; };
        check("hidden files", "a dot-file is not hidden, a marked file is",
              writeFile(dotFile, L"") && !hidden(dotFile) && writeFile(marked, L"")
                  && SetFileAttributesW(marked.c_str(), FILE_ATTRIBUTE_HIDDEN) && hidden(marked));

        const std::wstring from = workDirectory + L"\\new.part";
        const std::wstring to = workDirectory + L"\\file.bin";
        check("file move", "rename replaces the target",
              writeFile(from, L"new") && writeFile(to, L"old")
                  && Win::renameReplacing(from, to) == Win::RenameOutcome::Renamed && readFile(to) == L"new"
                  && GetFileAttributesW(from.c_str()) == INVALID_FILE_ATTRIBUTES);
        check("file move", "rename of a missing file fails",
              Win::renameReplacing(from, to) == Win::RenameOutcome::Failed && readFile(to) == L"new");
        check("file move", "sync of a file, and of a missing one", Win::syncFile(to) && !Win::syncFile(from));

        // The input: a pipe whose writer is "closed", one still "open", or none.
        const Row rows[] = {
            {"stdin pipe closed by the caller", L"closed", true},
            {"stdin pipe still open", L"open", false},
            {"no stdin pipe", L"", false},
        };
        for (const auto &row : rows) {
            SECURITY_ATTRIBUTES inherit {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
            HANDLE reader = nullptr;
            HANDLE writer = nullptr;
            if (row.input.empty())
                reader = CreateFileW(L"NUL", GENERIC_READ, 0, &inherit, OPEN_EXISTING, 0, nullptr);
            else if (CreatePipe(&reader, &writer, &inherit, 0) && row.expected)
                CloseHandle(std::exchange(writer, nullptr));
            else
                SetHandleInformation(writer, HANDLE_FLAG_INHERIT, 0);
            PROCESS_INFORMATION child = startChild(selfPath(), L"stdin", reader);
            check("file move", row.name, endChild(child, true) == (row.expected ? 1U : 0U));
            CloseHandle(reader);
            CloseHandle(writer);
        }
    }

    void testResources()
    {
        const std::wstring self = selfPath();
        std::vector<char> block(GetFileVersionInfoSizeW(self.c_str(), nullptr));
        GetFileVersionInfoW(self.c_str(), 0, static_cast<DWORD>(block.size()), block.data());
        // Read through the language block that Explorer reads.
        void *value = nullptr;
        UINT length = 0;
        check("version record", "file version text",
              VerQueryValueW(block.data(), L"\\StringFileInfo\\040904b0\\FileVersion", &value, &length)
                  && std::wstring(static_cast<const wchar_t *>(value)) == L"1.0.0.0");
        check("version record", "binary file version",
              VerQueryValueW(block.data(), L"\\", &value, &length)
                  && static_cast<VS_FIXEDFILEINFO *>(value)->dwFileVersionMS == 0x00010000
                  && static_cast<VS_FIXEDFILEINFO *>(value)->dwFileVersionLS == 0);
        check("version record", "icon", FindResourceW(nullptr, L"IDI_ICON1", RT_GROUP_ICON) != nullptr);

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
        check("manifest", "embedded once", manifests == 1);
        check("manifest", "runs as the invoking user", manifest.find("level=\"asInvoker\"") != std::string::npos);
        // System-wide awareness ("true") leaves the window blurred on every
        // screen but the main one.
        check("manifest", "declares per-monitor v2 awareness",
              manifest.find(">PerMonitorV2<") != std::string::npos && manifest.find(">true<") == std::string::npos);
    }
}

int main()
{
    // Split as Qt's QCoreApplication::arguments() splits it on Windows.
    int count = 0;
    wchar_t **list = CommandLineToArgvW(GetCommandLineW(), &count);
    const Arguments arguments(list, list + count);
    LocalFree(list);
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
    testProcesses();
    testWindows();
    testFiles();
    SHFileOperationW(&removal);
    std::printf("%d failed\n", failed);
    return failed == 0 ? 0 : 1;
}
