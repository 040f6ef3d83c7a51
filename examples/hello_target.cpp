#include <client_io/client_io.h>
#include <iostream>

int main(int, char** argv)
{
    Client_IO target(argv[1], {});
    std::string text;
    const bool done = target.put_contents("hello.txt", "Hello, target\n", true) &&
                      target.get_contents("hello.txt", text);
    (done ? std::cout << text : std::cerr << target.error() << '\n').flush();
    return done ? 0 : 1;
}
