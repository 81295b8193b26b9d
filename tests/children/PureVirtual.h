#pragma once

// A call of a pure virtual function. Not local to a file: the compiler must not know all derived classes.
class Pure {
public:
    Pure() { CallThroughBase(); }
    virtual ~Pure() = default;
    [[gnu::noipa]] void CallThroughBase() { Missing(); }
    virtual void Missing() = 0;
};
class Whole : public Pure {
    void Missing() override {}
};
