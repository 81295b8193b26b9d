// LocaleProbe: prints the locale that the library returns and the process's own.

#include <Base/ZBase.h>

#include <clocale>
#include <cstdio>

int main() {
    std::printf("[%s] [%s]\n", ZBase::GetProcessLocale(), std::setlocale(LC_ALL, nullptr));
}
