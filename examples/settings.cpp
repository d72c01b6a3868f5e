// Example of parameter files in C++: reads parameter text into a tree and prints it again.

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "stock.h"

using Tree = std::unique_ptr<Pf, decltype(&pffree)>;

int main(int argc, char **argv)
{
    elog_init(argc, argv);

    const char *text = "interval  10     # seconds\n"
                       "limits &Arr{\n"
                       "    load    4.0\n"
                       "    memory  80%\n"
                       "}\n"
                       "hosts &Tbl{\n"
                       "    north\n"
                       "    south\n"
                       "}\n";
    Pf *pf = nullptr;
    const int status = pfcompile(text, &pf);
    const Tree tree(pf, pffree);
    if (status != 0)
        elog_die(0, "the settings can't be read");
    pfout(stdout, tree.get());
    return 0;
}
