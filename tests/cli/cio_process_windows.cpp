#include "tests/cli/cio_process.h"

#include "platform/runtime/native_path.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <thread>

#include <windows.h>

namespace
{

void close_end(HANDLE& end)
{
    if (end != INVALID_HANDLE_VALUE)
        CloseHandle(end);
    end = INVALID_HANDLE_VALUE;
}

std::wstring wide(const std::string& text)
{
    std::wstring result;
    EXPECT_TRUE(utf8_to_wide(text, result)) << text;
    return result;
}

// As CommandLineToArgvW takes it apart: backslashes mean themselves except in front of a quote.
std::wstring quoted(const std::wstring& argument)
{
    std::wstring result = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'"')
            result.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        result += c;
    }
    return result.append(backslashes, L'\\') + L'"';
}

std::wstring command_line(const std::vector<std::string>& arguments)
{
    std::wstring line = quoted(wide(CIO_PROGRAM));
    for (const std::string& argument : arguments)
        line += L' ' + quoted(wide(argument));
    return line;
}

// This process's variables and the added ones, each with a zero behind it, sorted.
std::wstring environment(const Cio_Settings& settings)
{
    std::map<std::wstring, std::wstring> variables;
    wchar_t* const block = GetEnvironmentStringsW();
    for (const wchar_t* entry = block; *entry != L'\0'; entry += wcslen(entry) + 1) {
        const std::wstring_view text = entry;
        const std::size_t equals = text.find(L'=', 1); // the names of some begin with one
        variables.emplace(text.substr(0, equals), text.substr(equals + 1));
    }
    FreeEnvironmentStringsW(block);
    for (const auto& [name, value] : settings.environment)
        variables[wide(name)] = wide(value);
    std::wstring result;
    for (const auto& [name, value] : variables)
        result += name + L'=' + value + L'\0';
    return result + L'\0';
}

// A pipe of which the child gets one end.
void make_pipe(HANDLE& ours, HANDLE& theirs, bool child_reads)
{
    constexpr DWORD capacity = 65536;
    HANDLE& read_end = child_reads ? theirs : ours;
    HANDLE& write_end = child_reads ? ours : theirs;
    if (!CreatePipe(&read_end, &write_end, nullptr, capacity) ||
        !SetHandleInformation(theirs, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT))
        std::abort();
}

std::string read_all(HANDLE end)
{
    std::string text;
    char block[65536];
    for (DWORD n = 0; ReadFile(end, block, sizeof block, &n, nullptr) && n > 0;)
        text.append(block, n);
    return text;
}

} // namespace

Cio_Process::Cio_Process(const std::vector<std::string>& arguments, const Cio_Settings& settings)
{
    HANDLE ends[3];
    make_pipe(in_, ends[0], true);
    make_pipe(out_, ends[1], false);
    make_pipe(err_, ends[2], false);
    if (!settings.read_only_output.empty()) {
        CloseHandle(ends[1]);
        SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
        ends[1] = CreateFileW(wide(settings.read_only_output).c_str(), GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inherited,
                              OPEN_EXISTING, 0, nullptr);
        EXPECT_NE(ends[1], INVALID_HANDLE_VALUE) << settings.read_only_output;
    }
    // The child gets these handles and no others, which tests that run at once may have.
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    std::string memory(size, '\0');
    auto* list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory.data());
    InitializeProcThreadAttributeList(list, 1, 0, &size);
    UpdateProcThreadAttribute(list, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, ends, sizeof ends,
                              nullptr, nullptr);
    STARTUPINFOEXW info = {};
    info.StartupInfo.cb = sizeof info;
    info.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    info.StartupInfo.hStdInput = ends[0];
    info.StartupInfo.hStdOutput = ends[1];
    info.StartupInfo.hStdError = ends[2];
    info.lpAttributeList = list;
    PROCESS_INFORMATION process = {};
    std::wstring line = command_line(arguments);
    std::wstring variables = environment(settings);
    const std::wstring directory = wide(settings.directory);
    const BOOL started = CreateProcessW(
        wide(CIO_PROGRAM).c_str(), line.data(), nullptr, nullptr, TRUE,
        CREATE_UNICODE_ENVIRONMENT | EXTENDED_STARTUPINFO_PRESENT, variables.data(),
        directory.empty() ? nullptr : directory.c_str(), &info.StartupInfo, &process);
    EXPECT_TRUE(started) << CIO_PROGRAM << ": " << GetLastError();
    DeleteProcThreadAttributeList(list);
    for (HANDLE& end : ends)
        close_end(end);
    if (!started)
        return;
    CloseHandle(process.hThread);
    process_ = process.hProcess;
    pid_ = static_cast<int>(process.dwProcessId);
}

Cio_Process::~Cio_Process()
{
    if (process_ != INVALID_HANDLE_VALUE) {
        TerminateProcess(process_, 1);
        WaitForSingleObject(process_, INFINITE);
    }
    for (HANDLE* handle : {&process_, &in_, &out_, &err_})
        close_end(*handle);
}

void Cio_Process::write(const std::string& data)
{
    std::size_t done = 0;
    DWORD n = 0;
    while (done < data.size() &&
           WriteFile(in_, data.data() + done, static_cast<DWORD>(data.size() - done), &n, nullptr))
        done += n;
}

void Cio_Process::close_input()
{
    close_end(in_);
}

bool Cio_Process::wait_for_output(const std::string& text)
{
    char byte = 0;
    DWORD n = 0;
    while (result_.out.find(text) == std::string::npos || result_.out.back() != '\n') {
        if (!ReadFile(out_, &byte, 1, &n, nullptr) || n != 1)
            return false;
        result_.out += byte;
    }
    return true;
}

bool Cio_Process::read_output(std::size_t size)
{
    char block[65536];
    while (size > 0) {
        DWORD n = 0;
        if (!ReadFile(out_, block, static_cast<DWORD>(std::min(size, sizeof block)), &n, nullptr) ||
            n == 0)
            return false;
        size -= n;
    }
    return true;
}

void Cio_Process::wait_until_output_waits(int size)
{
    DWORD waiting = 0;
    while (PeekNamedPipe(out_, nullptr, 0, nullptr, &waiting, nullptr) &&
           waiting < static_cast<DWORD>(size))
        std::this_thread::yield();
}

void Cio_Process::close_output()
{
    close_end(out_);
}

// What a console does to bring the key to a process. A test need not have a console.
void Cio_Process::ask_to_end()
{
    auto* const routine =
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernelbase"), "CtrlRoutine"));
    ASSERT_NE(routine, nullptr);
    const HANDLE thread =
        CreateRemoteThread(process_, nullptr, 0, reinterpret_cast<LPTHREAD_START_ROUTINE>(routine),
                           reinterpret_cast<void*>(std::uintptr_t{CTRL_BREAK_EVENT}), 0, nullptr);
    ASSERT_NE(thread, nullptr) << GetLastError();
    CloseHandle(thread);
}

Cio_Result Cio_Process::wait()
{
    std::string messages;
    std::thread reader([&] { messages = read_all(err_); });
    if (out_ != INVALID_HANDLE_VALUE)
        result_.out += read_all(out_);
    reader.join();
    result_.err += messages;
    result_.code = wait_for_end();
    return result_;
}

int Cio_Process::wait_for_end()
{
    DWORD code = 0;
    if (process_ == INVALID_HANDLE_VALUE)
        return -1;
    WaitForSingleObject(process_, INFINITE);
    GetExitCodeProcess(process_, &code);
    close_end(process_);
    return static_cast<int>(code);
}

Cio_Result run_cio(const std::vector<std::string>& arguments, const Cio_Settings& settings)
{
    Cio_Process process(arguments, settings);
    process.write(settings.input);
    process.close_input();
    return process.wait();
}
