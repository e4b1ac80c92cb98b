#include "app/Game.h"

#include <cstdio>
#include <memory>

int main(int, char**)
{
    auto game = std::make_unique<Game>();
    if (game->init())
    {
        std::fprintf(stderr, "[SUCCESS] - Successfully started Main Loop\n");
        game->run();
    }
    else
    {
        std::fprintf(stderr, "Could not initialize Blotch - MAJOR PROBLEM");
    }
    game.reset(); // also after a failed start: tears down whatever was built
    return 0;
}
