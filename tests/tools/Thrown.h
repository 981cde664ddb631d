#pragma once

#include <string>

/// The text of the `Failure` that `action` throws; "nothing was thrown" when it ends well. Others pass through.
template <class Failure, class Action> std::string Thrown(Action action)
{
    try
    {
        action();
    }
    catch (const Failure& failure)
    {
        return failure.what();
    }
    return "nothing was thrown";
}
