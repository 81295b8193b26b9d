// LocaleProbe: prints the locale that the library tells and the one that the process is in.

#include <Base/ZBase.h>

#include <clocale>
#include <cstdio>

int main() {
    std::printf("[%s] [%s]\n", ZBase::GetProcessLocale(), std::setlocale(LC_ALL, nullptr));
}
