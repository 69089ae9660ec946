#pragma once
// What a hook does when the agent did not override it but had to: return at
// once (the caller then yields its neutral result: 0, false, null, 0.0) when
// the environment variable FAL_NOOP_AGENT is set, so an agent started that
// way runs the whole library without hardware; otherwise stop the agent with
// "This function must be implemented by derived class". The variable is read
// on every call, never cached.
namespace FalHelper {
void requiredHook();
}  // namespace FalHelper
